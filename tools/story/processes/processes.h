// SPDX-License-Identifier: Apache-2.0
// All processes of an events file.
#pragma once

#include <deque>

#include "story/processes/process.h"

namespace quarl::story {

class Processes {
 public:
  // Notes what the event says; the process that it is of.
  Process& take(const Event& event);

  // The one that has this id now; null when none was heard of.
  const Process* find(pid_t pid) const;
  // In the order in which they were heard of.
  const std::deque<Process>& all() const { return all_; }

 private:
  Process& current(pid_t pid);
  Process& begin(const Event& event);

  std::deque<Process> all_;
  std::map<pid_t, Process*> current_;
};

}  // namespace quarl::story
