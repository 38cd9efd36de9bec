// SPDX-License-Identifier: Apache-2.0
// One run of a program under the checker, from its start to its exit status.
#pragma once

#include <sys/signalfd.h>
#include <sys/wait.h>

#include <set>
#include <string>
#include <vector>

#include "process/run_events.h"
#include "process/stopped_threads.h"
#include "process/unchecked_programs.h"
#include "target/launch_command.h"

namespace quarl {

struct RunSettings {
  bool keep_parked = false;  // parked threads are told, but not released
  bool raw = false;          // no stories: the library's own texts are shown
  bool agent = false;        // tell the port that the agent announces
  int fault_status = 86;     // exit status after a fault; 0 keeps the program's own
  bool keep_all = false;     // logs that say nothing stay as well
  std::string logs;          // folder for the log files; "" makes one
};

class TargetRun {
 public:
  TargetRun(const RunSettings& settings, RunEvents& events);
  ~TargetRun();

  // Starts the program, waits for its end and returns the exit status: the program's own, 128 + N when signal N ended
  // it, or the fault status. A Refusal when the program cannot be started.
  int run(const LaunchCommand& command);

  pid_t pid() const { return pid_; }
  // Threads that the checker has stopped.
  int stopped() const { return stopped_.count(); }
  // The process that a signal has ended; 0 when it was none.
  pid_t killed() const { return WIFSIGNALED(wait_status_) ? pid_ : 0; }
  // The signal; 0 when it was none.
  int ending_signal() const { return WIFSIGNALED(wait_status_) ? WTERMSIG(wait_status_) : 0; }
  // Checked processes of the run that are still there.
  std::set<pid_t> survivors() const;

 private:
  void start(const LaunchCommand& command);
  [[noreturn]] void become_program(const LaunchCommand& command, int failure);
  void wait_for_end();
  void wait_for_stragglers();
  void wait_until(std::chrono::steady_clock::time_point time);
  void take_signals();
  void forward(const signalfd_siginfo& signal);
  void follow();  // the events, and what they ask for
  void look();    // at the processes: what no event has told
  void tell_agent_port();
  int exit_status() const;

  RunSettings settings_;
  RunEvents& events_;
  StoppedThreads stopped_;
  UncheckedPrograms unchecked_;
  sigset_t own_mask_;  // the signal mask that the program gets
  int signals_ = -1;
  pid_t pid_ = 0;
  bool emulated_ = false;
  bool ended_ = false;
  bool hurry_ = false;  // a thread is about to wait for its release
  int wait_status_ = 0;
  std::set<int> told_ports_;
};

}  // namespace quarl
