#include <exception>

#include "message.h"
#include "refusal.h"
#include "verbs/app.h"

int main(int argc, char** argv) {
  int exit_status = quarl::kDone;
  auto app = quarl::make_app(exit_status);
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app->exit(error, std::cout, std::cerr) == 0 ? quarl::kDone : quarl::kUsage;
  } catch (const std::exception& error) {
    quarl::say("{}", error.what());
    return quarl::kRefused;
  }
  return exit_status;
}
