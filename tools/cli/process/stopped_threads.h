// SPDX-License-Identifier: Apache-2.0
// Threads of a run that the checker has stopped: released as soon as they wait for it, or left for somebody.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "process/parked_threads.h"
#include "process/run_events.h"

namespace quarl {

class StoppedThreads {
 public:
  // `keep`: they are told, but not released. `tell_all`: also those that a story is told of.
  StoppedThreads(RunEvents& events, bool keep, bool tell_all) : events_(events), keep_(keep), tell_all_(tell_all) {}

  void look(pid_t pid);
  // Where the events say that a thread is stopped. True while one of them is not found waiting yet, soon after.
  bool look_where_told();
  // Ends processes in which nothing but the agent is left: it would keep them for ever, and takes no signal that could
  // be handled.
  void end_lonely_agents();

  int count() const { return static_cast<int>(known_.size()); }

 private:
  using Clock = std::chrono::steady_clock;
  struct Dump {
    Clock::time_point since;  // when it was asked for
    int before;               // snapshots that the process had written by then
  };
  std::vector<std::pair<pid_t, pid_t>> expected() const;
  void handle(const ParkedThread& thread);
  bool dump_comes(const ParkedThread& thread);

  RunEvents& events_;
  bool keep_, tell_all_;
  std::set<std::pair<pid_t, pid_t>> known_;                       // process and thread: released, or told
  std::map<std::pair<pid_t, pid_t>, Clock::time_point> awaited_;  // told to be stopped, and since when
  std::map<pid_t, Dump> dumps_;
};

}  // namespace quarl
