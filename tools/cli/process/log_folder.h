// SPDX-License-Identifier: Apache-2.0
// The folder into which the library writes the logs of a run and of all processes that it starts.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace quarl {

class LogFolder {
 public:
  // The given folder; for "" the one that QUARL_LOG_DIR of the tool's own environment names, or a new one for the run
  // of that program, outside of the directories that it works in. Made when it does not exist; a Refusal when it cannot
  // be.
  LogFolder(const std::string& given, const std::string& program);

  ~LogFolder();  // removes it when it was made here and nothing is in it
  LogFolder(const LogFolder&) = delete;
  LogFolder& operator=(const LogFolder&) = delete;

  const std::string& path() const { return path_; }

  // Makes an empty file there that no other run has: NAME.EXTENSION, or NAME-2.EXTENSION and so on. Its path; a Refusal
  // when it cannot be made.
  std::string make_file(const std::string& name, const std::string& extension) const;

  // Paths of the logs that are there. With findings_only, those of processes that ended without writing what they held
  // (by exec, _exit or a signal) and that have no record are removed first, but for that of `spared`.
  std::vector<std::string> logs(bool findings_only, pid_t spared) const;

 private:
  std::string path_;
  bool made_;
};

// The process id in NAME_PID_quarlAll.log, NAME_PID_quarl.log or NAME_PID_quarl_autosnap.log; 0 for another name.
pid_t process_of_log(const std::string& file_name);

}  // namespace quarl
