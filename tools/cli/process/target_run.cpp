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
constexpr std::chrono::milliseconds kLookPeriod(100);
constexpr int kMaxLookShare = 50;  // looking takes at most one part in so many of the time

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

TargetRun::TargetRun(const RunSettings& settings) : settings_(settings), tap_(OutputTap::open(settings.direct)) {}

TargetRun::~TargetRun() {
  if (signals_ >= 0) close(signals_);
}

int TargetRun::run(const LaunchCommand& command) {
  start(command);
  wait_for_end();
  tap_->finish();
  tell_agent_port();
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
  tap_->start();
}

void TargetRun::become_program(const LaunchCommand& command, int failure) {
  tap_->attach_child();
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
  std::chrono::milliseconds period = kLookPeriod;
  while (!ended_) {
    struct pollfd source = {signals_, POLLIN, 0};
    poll(&source, 1, static_cast<int>(period.count()));
    take_signals();
    if (ended_) break;
    auto begin = Clock::now();
    look();
    auto cost = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    period = std::max(kLookPeriod, cost * kMaxLookShare);
  }
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
  if (signal.ssi_signo == SIGWINCH) tap_->resize();
  if (ended_ || signal.ssi_code > 0) return;
  std::vector<pid_t> tree = process_tree(pid_);
  if (std::find(tree.begin(), tree.end(), static_cast<pid_t>(signal.ssi_pid)) != tree.end()) return;
  kill(pid_, machine_signal(static_cast<int>(signal.ssi_signo), emulated_));
}

void TargetRun::look() {
  tap_->look();
  tell_agent_port();
  std::vector<pid_t> tree = process_tree(pid_);
  for (pid_t pid : tree) look_at_process(pid);
  end_lonely_agents();
}

void TargetRun::look_at_process(pid_t pid) {
  for (const ParkedThread& thread : find_parked(pid)) {
    if (!parked_.insert({pid, thread.tid}).second) continue;
    std::string name = thread_name(pid, thread.tid);
    if (settings_.keep_parked) {
      say("thread {} ({}) of process {} is parked after a fault; end it with: quarl release {} {}", thread.tid, name,
          pid, pid, thread.tid);
    } else {
      release(thread);
      say("thread {} ({}) of process {} was parked after a fault and is released to end", thread.tid, name, pid);
    }
  }
}

// When the last thread of a program was parked and released, its agent would keep the process for ever; and the agent
// takes no signal that could be handled.
void TargetRun::end_lonely_agents() {
  for (const auto& [pid, tid] : parked_) {
    if (thread_lives(pid, tid) || !only_agent_left(pid)) continue;
    say("nothing but the agent is left of process {}; it is ended", pid);
    kill(pid, SIGKILL);
  }
}

void TargetRun::tell_agent_port() {
  int port = tap_->agent_port();
  if (!settings_.agent || port == told_port_) return;
  told_port_ = port;
  say("the agent listens at port {}", port);
}

int TargetRun::exit_status() const {
  int faults = tap_->faults();
  int parked = static_cast<int>(parked_.size());
  if (faults > 0 || parked > 0) say("fault reports: {}, parked threads: {}", faults, parked);
  if ((faults > 0 || parked > 0) && settings_.fault_status != 0) return settings_.fault_status;
  return WIFSIGNALED(wait_status_) ? 128 + WTERMSIG(wait_status_) : WEXITSTATUS(wait_status_);
}

}  // namespace quarl
