// SPDX-License-Identifier: Apache-2.0
// All verbs in one CLI11 application, from which help, completion and manual page are made.
#include "verbs/app.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <memory>

#include "frames/verb.h"
#include "message.h"
#include "refusal.h"
#include "story/verb.h"
#include "verbs/verbs.h"

#ifdef QUARL_HAVE_REPORT
#include "report/verb.h"
#endif

namespace quarl {
namespace {

std::unique_ptr<CLI::App> make_app(int& exit_status) {
  auto app = std::make_unique<CLI::App>("Heap and mapping checker for 32-bit Linux programs.", "quarl");
  app->set_version_flag("--version", "quarl " QUARL_VERSION);
  app->require_subcommand(1);
  app->get_formatter()->column_width(34);
  app->footer(
      "Exit status: 0 done, 1 nothing found or refused, 2 wrong usage; \"quarl run\" ends with the status of the\n"
      "program. \"quarl VERB --help\" tells more about a verb.\n\n"
      "Example:\n  quarl run -- ./application --its-option");
  add_run(*app, exit_status);
  add_ctl(*app, exit_status);
  add_dump(*app, exit_status);
  add_reload(*app, exit_status);
  add_release(*app, exit_status);
  add_config(*app, exit_status);
  frames::add_verb(*app, exit_status);
#ifdef QUARL_HAVE_REPORT
  report::add_verb(*app, exit_status);
#endif
  story::add_verb(*app, exit_status);
  add_completion(*app, exit_status);
  add_man(*app, exit_status);
  return app;
}

}  // namespace

int run_command_line(int argc, char** argv) {
  int exit_status = kDone;
  auto app = make_app(exit_status);
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app->exit(error, std::cout, std::cerr) == 0 ? kDone : kUsage;
  } catch (const std::exception& error) {
    say("{}", error.what());
    return kRefused;
  }
  return exit_status;
}

}  // namespace quarl
