// SPDX-License-Identifier: Apache-2.0
// A running process that has the checker loaded.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace quarl {

class CheckedProcess {
 public:
  // A Refusal when there is no such process, or it does not run under the checker: the signals that steer it would
  // end it then.
  explicit CheckedProcess(pid_t pid);

  // The configuration file that the process reads; nothing when there is none.
  std::optional<std::string> config_file() const;

  // Asks for the dump and a reload: QUARL_SIG of its configuration, SIGUSR1 otherwise. Returns the program's number of
  // the signal. A Refusal when the process does not handle that signal.
  int signal_dump() const;

  // Its log files with the time and size of the last write, in the folder that QUARL_LOG_DIR names to it, where it
  // began, where it is now, or where it has one open.
  struct Written {
    int64_t time;  // nanoseconds since the epoch
    int64_t size;  // bytes
    bool operator==(const Written&) const = default;
  };
  std::map<std::string, Written> logs();
  // Where logs are looked for, besides those that are open; where one was seen belongs to it from then on.
  std::set<std::string> log_folders() const;

 private:
  int dump_signal() const;
  std::string why_not_handled(int signal) const;

  pid_t pid_;
  std::set<std::string> seen_in_;  // folders of open logs
};

}  // namespace quarl
