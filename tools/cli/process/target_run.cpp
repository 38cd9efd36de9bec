// SPDX-License-Identifier: Apache-2.0
#include "process/target_run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "message.h"
#include "process/proc.h"
#include "refusal.h"

namespace quarl {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
constexpr milliseconds kLookPeriod(100);
constexpr milliseconds kHurry(2);         // between looks for a thread that is about to be stopped
constexpr milliseconds kBreath(20);       // between looks for processes that are about to end
constexpr milliseconds kPatience(1000);   // for what becomes of a stopped thread
constexpr milliseconds kStragglers(300);  // for processes that end with the program
constexpr int kMaxLookShare = 50;         // looking takes at most one part in so many of the time

// What the program may be told from outside. Not SIGTSTP: the terminal stops both at once.
sigset_t handled_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGTERM, SIGCONT, SIGURG, SIGVTALRM, SIGPROF,
                     SIGWINCH, SIGIO, SIGPWR, SIGCHLD}) {
    sigaddset(&set, signal);
  }
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) sigaddset(&set, signal);
  return set;
}

}  // namespace

TargetRun::TargetRun(const RunSettings& settings, RunEvents& events)
    : settings_(settings), events_(events), stopped_(events, settings.keep_parked, settings.raw) {}

TargetRun::~TargetRun() {
  if (signals_ >= 0) close(signals_);
}

int TargetRun::run(const LaunchCommand& command) {
  start(command);
  wait_for_end();
  wait_for_stragglers();
  events_.tell_waiting(milliseconds(0));
  return exit_status();
}

void TargetRun::start(const LaunchCommand& command) {
  sigset_t handled = handled_signals();
  sigprocmask(SIG_BLOCK, &handled, &own_mask_);
  signals_ = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);
  emulated_ = command.emulated;
  int failure[2];
  if (pipe2(failure, O_CLOEXEC) != 0 || (pid_ = fork()) < 0) refuse("cannot start: {}", std::strerror(errno));
  if (pid_ == 0) become_program(command, failure[1]);
  signal(SIGPIPE, SIG_IGN);
  close(failure[1]);
  int error = 0;
  bool failed = read(failure[0], &error, sizeof error) == sizeof error;
  close(failure[0]);
  if (failed) refuse("cannot start {}: {}", command.argv[0], std::strerror(error));
}

void TargetRun::become_program(const LaunchCommand& command, int failure) {
  for (const auto& [name, value] : command.environment) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> argv;
  for (const std::string& argument : command.argv) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  sigprocmask(SIG_SETMASK, &own_mask_, nullptr);
  execv(argv[0], argv.data());
  int error = errno;
  [[maybe_unused]] ssize_t told = write(failure, &error, sizeof error);
  _exit(127);
}

void TargetRun::wait_for_end() {
  auto next_look = Clock::now();
  while (!ended_) {
    if (Clock::now() >= next_look) {
      auto begin = Clock::now();
      look();
      next_look = Clock::now() + std::max<Clock::duration>(kLookPeriod, (Clock::now() - begin) * kMaxLookShare);
    }
    wait_until(hurry_ ? std::min(next_look, Clock::now() + kHurry) : next_look);
    take_signals();
    follow();
  }
}

// For a signal, or for events.
void TargetRun::wait_until(Clock::time_point time) {
  auto left = std::chrono::ceil<milliseconds>(time - Clock::now());
  struct pollfd sources[] = {{signals_, POLLIN, 0}, {events_.watch(), POLLIN, 0}};
  poll(sources, std::size(sources), static_cast<int>(std::max(left, milliseconds(0)).count()));
}

// Of a pipeline, say, all but the last process end by themselves a moment later.
void TargetRun::wait_for_stragglers() {
  auto end = Clock::now() + kStragglers;
  follow();
  while (!survivors().empty() && Clock::now() < end) {
    wait_until(std::min(end, Clock::now() + kBreath));
    take_signals();
    follow();
  }
}

// A forked process that had nothing to tell yet is known by its environment alone.
std::set<pid_t> TargetRun::survivors() const {
  std::set<pid_t> living;
  for (pid_t pid : all_processes()) {
    if (environment_of(pid, "QUARL_EVENTS") == events_.path() && runs_under_checker(pid)) living.insert(pid);
  }
  for (const story::Process& process : events_.processes().all()) {
    const bool over = process.ending || process.replaced || process.pid == pid_;
    if (!over && runs_under_checker(process.pid)) living.insert(process.pid);
  }
  return living;
}

void TargetRun::take_signals() {
  signalfd_siginfo signal;
  while (read(signals_, &signal, sizeof signal) == sizeof signal) {
    if (signal.ssi_signo == SIGCHLD) {
      ended_ = ended_ || waitpid(pid_, &wait_status_, WNOHANG) == pid_;
    } else {
      forward(signal);
    }
  }
}

// What the terminal sends, and what the program sends to its own process group, has reached the program by itself.
void TargetRun::forward(const signalfd_siginfo& signal) {
  if (ended_ || signal.ssi_code > 0) return;
  std::vector<pid_t> tree = process_tree(pid_);
  if (std::find(tree.begin(), tree.end(), static_cast<pid_t>(signal.ssi_pid)) != tree.end()) return;
  kill(pid_, machine_signal(static_cast<int>(signal.ssi_signo), emulated_));
}

void TargetRun::follow() {
  events_.read();
  hurry_ = stopped_.look_where_told();
  events_.tell_waiting(kPatience);
  tell_agent_port();
}

void TargetRun::look() {
  for (pid_t pid : process_tree(pid_)) {
    stopped_.look(pid);
    unchecked_.look(pid);
  }
  stopped_.end_lonely_agents();
}

void TargetRun::tell_agent_port() {
  if (!settings_.agent) return;
  for (const story::Process& process : events_.processes().all()) {
    if (process.agent_port != 0 && told_ports_.insert(process.agent_port).second)
      say("the agent listens at port {}", process.agent_port);
  }
}

int TargetRun::exit_status() const {
  const bool faulty = events_.teller().faults() > 0 || stopped_.count() > 0;
  if (faulty && settings_.fault_status != 0) return settings_.fault_status;
  return WIFSIGNALED(wait_status_) ? 128 + WTERMSIG(wait_status_) : WEXITSTATUS(wait_status_);
}

}  // namespace quarl
