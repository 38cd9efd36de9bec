// Moves the log files of a run from the directory where the library wrote them to the one that was asked for.
#pragma once

#include <sys/types.h>

#include <set>
#include <string>
#include <vector>

namespace quarl {

class LogCollector {
 public:
  // "" collects nothing. The folder is made when it does not exist; a Refusal when it cannot be.
  explicit LogCollector(const std::string& folder);
  ~LogCollector();

  // Readable when a file was created in the current directory; -1 when nothing is collected.
  int descriptor() const { return watch_; }
  void drain() const;

  // Processes of the run: files that carry their ids are collected.
  void note(const std::vector<pid_t>& processes);

  // The run is over: moves the files of all processes that have ended.
  void collect() const;

 private:
  std::string folder_;
  int watch_ = -1;
  std::set<pid_t> processes_;
};

// The process id in NAME_PID_quarlAll.log, NAME_PID_quarl.log or NAME_PID_quarl_autosnap.log; 0 for another name.
pid_t process_of_log(const std::string& file_name);

}  // namespace quarl
