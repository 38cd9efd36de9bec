// SPDX-License-Identifier: Apache-2.0
#include "story/processes/processes.h"

#include <fmt/format.h>

#include <algorithm>

namespace quarl::story {
namespace {

void add_log(Process& process, const std::string& path) {
  if (path.empty() || std::find(process.logs.begin(), process.logs.end(), path) != process.logs.end()) return;
  process.logs.push_back(path);
}

Ending ending_of(const Fields& fields) {
  return {fields.number("blocks"), fields.number("bytes"),
          static_cast<int>(fields.number("signal").value_or(0) & 0x7f)};
}

}  // namespace

std::string Process::name() const {
  if (program.empty()) return fmt::format("process {}", pid);
  return fmt::format("{}[{}]", program.substr(program.rfind('/') + 1), pid);
}

Process& Processes::current(pid_t pid) {
  auto [position, added] = current_.try_emplace(pid);
  if (added) {
    position->second = &all_.emplace_back();
    position->second->pid = pid;
  }
  return *position->second;
}

// A program that exec starts has the same process id; and ids come round.
Process& Processes::begin(const Event& event) {
  if (auto known = current_.find(event.pid()); known != current_.end() && known->second->loaded) {
    known->second->replaced = !known->second->ending;
    current_.erase(known);
  }
  Process& process = current(event.pid());
  process.loaded = true;
  process.program = event.fields().text("program");
  // A forked child has its parent's blocks, the damaged ones too.
  auto parent = current_.find(static_cast<pid_t>(event.fields().number("parent").value_or(0)));
  if (parent != current_.end()) process.faults = parent->second->faults;
  return process;
}

Process& Processes::take(const Event& event) {
  const std::string& kind = event.kind();
  Fields fields = event.fields();
  if (kind == "loaded") return begin(event);
  Process& process = current(event.pid());
  auto thread = static_cast<pid_t>(fields.number("thread").value_or(0));
  if (kind == "module" && fields.number("id")) {
    process.modules[*fields.number("id")] = {fields.text("path"), fields.text("build_id")};
  } else if (kind == "parked" && thread != 0) {
    process.parked.insert(thread);
  } else if (kind == "ended") {
    process.parked.erase(thread);
  } else if (kind == "log" || kind == "snapshot") {
    add_log(process, fields.text("path"));
    process.snapshots += kind == "snapshot" ? 1 : 0;
    if (kind == "snapshot") process.snapshot = ending_of(fields);
  } else if (kind == "agent") {
    process.agent_port = static_cast<int>(fields.number("port").value_or(0) & 0xffff);
  } else if (kind == "exit" || kind == "confined") {
    process.ending = ending_of(fields);
  }
  return process;
}

const Process* Processes::find(pid_t pid) const {
  auto known = current_.find(pid);
  return known == current_.end() ? nullptr : known->second;
}

}  // namespace quarl::story
