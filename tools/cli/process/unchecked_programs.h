// Programs of a run that the checker was not loaded into.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

namespace quarl {

class UncheckedPrograms {
 public:
  // Looks at a process of the run, now and then. A program that it has at two looks in a row, without the checker,
  // counts.
  void look(pid_t pid);

  // "/usr/bin/sleep (64-bit), ..."; "" when there was none.
  std::string list() const;

 private:
  std::map<pid_t, std::string> seen_;            // the program that the process had at the last look
  std::map<std::string, std::string> programs_;  // path, why
};

}  // namespace quarl
