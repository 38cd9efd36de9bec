// SPDX-License-Identifier: Apache-2.0
// Programs of a run that the checker was not loaded into.
#pragma once

#include <sys/types.h>

#include <map>
#include <set>
#include <string>

namespace quarl {

class UncheckedPrograms {
 public:
  // Looks at a process of the run, now and then. A program that it has at two looks in a row, without the checker, is
  // told.
  void look(pid_t pid);

 private:
  std::map<pid_t, std::string> seen_;  // the program that the process had at the last look
  std::set<std::string> told_;         // paths
};

}  // namespace quarl
