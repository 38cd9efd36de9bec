#include "report/reading/events_file.h"

#include <fstream>

namespace quarl::report {
namespace {

using Json = nlohmann::json;

bool is_of(const Json& event, uint32_t pid) {
  auto found = event.is_object() ? event.find("pid") : event.end();
  return event.is_object() && found != event.end() && found->is_number() && *found == pid;
}

}  // namespace

void for_each_event(const std::string& path, uint32_t pid, const std::function<void(const Json&)>& visit) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    Json event = Json::parse(line, nullptr, false);
    if (is_of(event, pid)) visit(event);
  }
}

std::string text_of(const Json& event, const char* key) {
  auto found = event.find(key);
  return found != event.end() && found->is_string() ? found->get<std::string>() : "";
}

}  // namespace quarl::report
