#include "report/reading/module_events.h"

#include <charconv>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

namespace quarl::report {
namespace {

using Json = nlohmann::json;

std::string text_of(const Json& event, const char* key) {
  auto found = event.find(key);
  return found != event.end() && found->is_string() ? found->get<std::string>() : "";
}

// "0x9f15f60"
std::optional<uint32_t> address_of(const Json& event, const char* key) {
  std::string text = text_of(event, key);
  uint32_t value = 0;
  if (!text.starts_with("0x")) return std::nullopt;
  auto [stop, error] = std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
  return error == std::errc() && stop == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

bool is_of(const Json& event, uint32_t pid) {
  auto found = event.is_object() ? event.find("pid") : event.end();
  return event.is_object() && found != event.end() && found->is_number() && *found == pid;
}

// From one program of a process to the next that it executes.
struct Run {
  std::string program;
  std::vector<ModuleEvent> modules;
};

void add_module(const Json& event, Run& run) {
  auto address = address_of(event, "address"), bias = address_of(event, "bias");
  std::string path = text_of(event, "path");
  if (address && bias && !path.empty()) run.modules.push_back({path, text_of(event, "build_id"), *address, *bias});
}

}  // namespace

std::vector<ModuleEvent> read_module_events(const std::string& path, uint32_t pid, const std::string& program) {
  std::vector<Run> runs(1);
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    Json event = Json::parse(line, nullptr, false);
    if (!is_of(event, pid)) continue;
    std::string kind = text_of(event, "event");
    if (kind == "loaded") runs.push_back({text_of(event, "program"), {}});
    if (kind == "module") add_module(event, runs.back());
  }
  auto wanted = std::find_if(runs.rbegin(), runs.rend(),
                             [&](const Run& run) { return !program.empty() && run.program == program; });
  return wanted != runs.rend() ? wanted->modules : runs.back().modules;
}

}  // namespace quarl::report
