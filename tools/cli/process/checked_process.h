// A running process that has the checker loaded.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

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

  // Paths of its log files, in the folder that QUARL_LOG_DIR names to it or the directory where it is now.
  std::vector<std::string> logs() const;

 private:
  int dump_signal() const;

  pid_t pid_;
};

}  // namespace quarl
