// One run of a program under the checker, from its start to its exit status.
#pragma once

#include <sys/signalfd.h>
#include <sys/wait.h>

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "process/output_tap.h"
#include "process/parked_threads.h"
#include "target/launch_command.h"

namespace quarl {

struct RunSettings {
  bool keep_parked = false;  // parked threads are told, but not released
  bool direct = false;       // standard output is not read along
  bool agent = false;        // tell the port that the agent announces
  int fault_status = 86;     // exit status after a fault; 0 keeps the program's own
  bool keep_all = false;     // logs that say nothing stay as well
  std::string logs;          // folder for the log files; "" makes one
};

class TargetRun {
 public:
  explicit TargetRun(const RunSettings& settings);
  ~TargetRun();

  // Starts the program, waits for its end and returns the exit status: the program's own, 128 + N when signal N ended
  // it, or the fault status. A Refusal when the program cannot be started.
  int run(const LaunchCommand& command);

  // The process that a signal has ended; 0 when it was none.
  pid_t killed() const { return WIFSIGNALED(wait_status_) ? pid_ : 0; }

 private:
  void start(const LaunchCommand& command);
  [[noreturn]] void become_program(const LaunchCommand& command, int failure);
  void wait_for_end();
  void take_signals();
  void forward(const signalfd_siginfo& signal);
  void look();  // for parked threads, new processes and messages
  void look_at_process(pid_t pid);
  void end_lonely_agents();
  void tell_agent_port();
  int exit_status() const;

  RunSettings settings_;
  std::unique_ptr<OutputTap> tap_;
  sigset_t own_mask_;  // the signal mask that the program gets
  int signals_ = -1;
  pid_t pid_ = 0;
  bool emulated_ = false;
  bool ended_ = false;
  int wait_status_ = 0;
  int told_port_ = 0;
  std::set<std::pair<pid_t, pid_t>> parked_;  // told already
};

}  // namespace quarl
