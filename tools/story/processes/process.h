// SPDX-License-Identifier: Apache-2.0
// What the events have told of one process.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "events/event.h"

namespace quarl::story {

using namespace events;

struct Module {
  std::string path;
  std::string build_id;  // hexadecimal; empty when there is none
};

// What a process holds when it says its last.
struct Ending {
  std::optional<uint64_t> blocks, bytes;  // live at that moment
  int signal = 0;                         // that ended it; 0 for none
};

// Kind, address and sequence number: reports of which these are equal are of one fault.
using FaultKey = std::tuple<std::string, uint32_t, uint64_t>;

struct Process {
  pid_t pid = 0;
  bool loaded = false;  // said so; else its first lines are lost
  std::string program;  // path; "" when unknown
  std::map<uint64_t, Module> modules;
  std::set<FaultKey> faults;
  std::set<pid_t> parked;         // threads that were stopped and have not ended
  std::vector<std::string> logs;  // paths, each once
  int snapshots = 0;              // that it has written
  int agent_port = 0;             // 0 when it does not listen
  std::optional<Ending> ending;
  std::optional<Ending> snapshot;  // the last one
  bool replaced = false;           // another program has the process id by now, by exec

  // "planted[6696]"
  std::string name() const;
};

}  // namespace quarl::story
