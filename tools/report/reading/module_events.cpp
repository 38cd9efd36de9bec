#include "report/reading/module_events.h"

#include <charconv>
#include <optional>

#include "report/reading/events_file.h"

namespace quarl::report {
namespace {

using Json = nlohmann::json;

// "0x9f15f60"
std::optional<uint32_t> address_of(const Json& event, const char* key) {
  std::string text = text_of(event, key);
  uint32_t value = 0;
  if (!text.starts_with("0x")) return std::nullopt;
  auto [stop, error] = std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
  return error == std::errc() && stop == text.data() + text.size() ? std::optional(value) : std::nullopt;
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
  for_each_event(path, pid, [&](const Json& event) {
    std::string kind = text_of(event, "event");
    if (kind == "loaded") runs.push_back({text_of(event, "program"), {}});
    if (kind == "module") add_module(event, runs.back());
  });
  auto wanted = std::find_if(runs.rbegin(), runs.rend(),
                             [&](const Run& run) { return !program.empty() && run.program == program; });
  return wanted != runs.rend() ? wanted->modules : runs.back().modules;
}

}  // namespace quarl::report
