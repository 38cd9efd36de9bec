// SPDX-License-Identifier: Apache-2.0
#include "report/reading/module_events.h"

#include <algorithm>

#include "events/events_file.h"

namespace quarl::report {
namespace {

// From one program of a process to the next that it executes.
struct Run {
  std::string program;
  std::vector<ModuleEvent> modules;
};

void add_module(const events::Fields& fields, Run& run) {
  auto address = fields.address("address"), bias = fields.address("bias");
  std::string path = fields.text("path");
  if (address && bias && !path.empty()) run.modules.push_back({path, fields.text("build_id"), *address, *bias});
}

}  // namespace

std::vector<ModuleEvent> read_module_events(const std::string& path, uint32_t pid, const std::string& program) {
  std::vector<Run> runs(1);
  events::for_each_event(path, pid, [&](const events::Event& event) {
    if (event.kind() == "loaded") runs.push_back({event.fields().text("program"), {}});
    if (event.kind() == "module") add_module(event.fields(), runs.back());
  });
  auto wanted = std::find_if(runs.rbegin(), runs.rend(),
                             [&](const Run& run) { return !program.empty() && run.program == program; });
  return wanted != runs.rend() ? wanted->modules : runs.back().modules;
}

}  // namespace quarl::report
