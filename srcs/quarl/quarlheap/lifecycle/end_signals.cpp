// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/lifecycle/end_signals.h"

#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "interrupted.h"
#include "platform/confinement.h"
#include "platform/environment.h"
#include "platform/late_signal.h"
#include "platform/libc_hooks.h"
#include "platform/print.h"
#include "platform/system.h"
#include "quarlheap/checking/crash_report.h"
#include "quarlheap/lifecycle/checker_end.h"
#include "quarlheap/lifecycle/signal_stacks.h"
#include "quarlheap/model/used_list.h"
#include "quarlheap/upkeep/dump.h"
#include "quarlheap/upkeep/end_event.h"
#include "state/events/event.h"
#include "state/held_text.h"
#include "state/own_memory.h"
#include "state/process.h"

namespace quarl {
namespace {

constexpr int kPatience = 1000;       // milliseconds for another thread to leave the checker
constexpr int kLastPatience = 60000;  // for another thread to end the process
constexpr int kSteps = 7;
constexpr uint32_t kStepStack = 64 << 10;

struct EndSignal {
  int number;
  const char* name;
  bool crash;  // the program's fault; else somebody asks it to end
};
constexpr EndSignal kEndSignals[] = {
    {SIGTERM, "SIGTERM", false}, {SIGINT, "SIGINT", false},  {SIGHUP, "SIGHUP", false},
    {SIGQUIT, "SIGQUIT", false}, {SIGSEGV, "SIGSEGV", true}, {SIGBUS, "SIGBUS", true},
    {SIGABRT, "SIGABRT", true},  {SIGFPE, "SIGFPE", true},   {SIGILL, "SIGILL", true},
};

const EndSignal* end_signal(int number) {
  for (const EndSignal& each : kEndSignals) {
    if (each.number == number) return &each;
  }
  return nullptr;
}

// What the kernel gave a handler with its signal. A program that calls the handler itself, or has put it back by its
// address alone, gives something else: then nothing is known.
class SignalFrame {
 public:
  SignalFrame(int number, siginfo_t* info, void* context) : number_(number) {
    const bool together = address_of(info) % 4 == 0 && address_of(context) == address_of(info) + sizeof *info;
    if (!together || !sys::word_exists(static_cast<uint32_t*>(context)) || !sys::word_exists(&words_of(info))) return;
    if (info->si_signo != number) return;
    info_ = info;
    context_ = static_cast<ucontext_t*>(context);
  }

  // By an instruction, and not sent: it comes again when the instruction is executed again.
  bool by_instruction() const {
    const bool sent = info_ == nullptr || info_->si_code <= 0 || number_ == SIGABRT;
    return !sent && end_signal(number_)->crash && !(number_ == SIGBUS && info_->si_code == BUS_MCEERR_AO);
  }
  bool has_address() const {
    return by_instruction() && (number_ == SIGSEGV || number_ == SIGBUS) && info_->si_code != SI_KERNEL;
  }

  void describe(Crash* crash) const {
    crash->number = number_;
    crash->name = end_signal(number_)->name;
    if (context_ != nullptr) crash->at = frame::interrupted_registers(*context_);
    crash->has_address = has_address();
    if (has_address()) crash->address = address_of(info_->si_addr);
  }

  // The default action, at the interrupted place when the handler returns, so that a core file shows that one.
  void end_process() const {
    struct sigaction as_default {};
    set_signal_action(number_, &as_default, nullptr);
    if (by_instruction()) return;
    sigset_t itself;
    sigemptyset(&itself);
    sigaddset(&itself, number_);
    sys::set_signal_mask(SIG_BLOCK, &itself, nullptr);
    sys::send_to_this_thread(number_, info_);
    if (context_ != nullptr) {
      sigdelset(&context_->uc_sigmask, number_);
    } else {
      sys::set_signal_mask(SIG_UNBLOCK, &itself, nullptr);
    }
  }

 private:
  static uint32_t& words_of(siginfo_t* info) { return word_at(address_of(info)); }

  const int number_;
  siginfo_t* info_ = nullptr;  // null: not known, like the context
  ucontext_t* context_ = nullptr;
};

constinit bool wanted = false;
constinit uint32_t step_stacks = 0;  // one for each step, the first one's is the highest; 0: there is no memory
constinit int teller = 0;            // thread that ends the checker
constinit int next_step = 0;         // a crash in one of them goes on with the next
constinit int put_off = 0;           // signal that waits for its thread to leave the checker
constinit int end_number = 0;        // signal that ends the process
constinit Crash crash{};

bool by_crash() {
  return end_signal(end_number)->crash;
}

enum class LockState : uint8_t { kNotHad, kTaken, kInterrupted };
constinit LockState lock_state = LockState::kNotHad;

void take_lock() NO_THREAD_SAFETY_ANALYSIS {
  write_messages_without_waiting();
  if (hook_mutex.held_by_this_thread()) {
    lock_state = LockState::kInterrupted;
    expect_unfinished_list();
  } else if (hook_mutex.lock_within(kPatience)) {
    lock_state = LockState::kTaken;
  }
}

bool may_look() NO_THREAD_SAFETY_ANALYSIS {
  return lock_state != LockState::kNotHad && !checker_has_ended();
}

void trace() {
  if (by_crash()) trace_crash(&crash);
}

void find_block() NO_THREAD_SAFETY_ANALYSIS {
  if (by_crash() && may_look()) find_block_of_crash(&crash);
}

void tell() {
  if (by_crash()) tell_crash(crash);
}

void write_logs() NO_THREAD_SAFETY_ANALYSIS {
  if (may_look()) run_exit_dump();
}

void tell_without_looking() {
  print_failure(kStderr, {"log"}, "quarl: another thread does not leave the checker, the logs are not written\n");
  if (const Event event("exit"); event) event.line().number("signal", static_cast<uint32_t>(end_number));
}

void tell_end() NO_THREAD_SAFETY_ANALYSIS {
  if (lock_state == LockState::kNotHad) return tell_without_looking();
  if (may_look()) tell_exit(end_number);
}

void leave() NO_THREAD_SAFETY_ANALYSIS {
  if (lock_state == LockState::kNotHad) return;
  if (!checker_has_ended()) end_checker();
  if (lock_state == LockState::kTaken) return hook_mutex.unlock();
  write_held_texts(take_held_texts());
}

void take_remaining_steps() {
  static constexpr void (*kStep[kSteps])() = {take_lock, trace, find_block, tell, write_logs, tell_end, leave};
  while (next_step < kSteps) kStep[next_step++]();
}

// Each crash in a step goes on below the stack of that one.
void tell_on_own_stack() {
  const InsideChecker inside;
  if (step_stacks == 0) return take_remaining_steps();
  frame::call_on_stack(step_stacks + static_cast<uint32_t>(kSteps + 1 - next_step) * kStepStack, take_remaining_steps);
}

// What is sent while this thread is inside the checker waits until it has left, a second at the most.
bool is_put_off(int number, const SignalFrame& frame) {
  if (frame.by_instruction() || put_off != 0 || !hook_mutex.held_by_this_thread()) return false;
  put_off = number;
  hook_mutex.assert_held();
  put_off_signal(number, kPatience);
  hook_mutex.leave_for_release(kPendingSignal);
  return true;
}

// True for the thread that ends the checker. The others wait for it.
bool becomes_teller(int number, const SignalFrame& frame) {
  int nobody = 0;
  const int self = current_tid();
  if (__atomic_compare_exchange_n(&teller, &nobody, self, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
    end_number = number;
    frame.describe(&crash);
    return true;
  }
  if (nobody == self) return true;
  for (int waited = 0; waited < kLastPatience && hooks_installed != 0; waited += 10) sys::nap(10);
  return false;
}

// A child past fork (vfork, a raw clone) may have its parent's memory for its own.
bool is_checked_process() {
  return !confined() && hooks_installed != 0 && getpid() == proc_pid;
}

void handle_end_signal(int number, siginfo_t* info, void* context) {
  const KeepErrno keep;
  const SignalFrame frame(number, info, context);
  if (is_checked_process()) {
    if (is_put_off(number, frame)) return;
    if (becomes_teller(number, frame)) tell_on_own_stack();
  }
  frame.end_process();
}

void set_action(const EndSignal& signal, bool handled) {
  struct sigaction action {};
  if (handled) {
    action.sa_sigaction = handle_end_signal;
    action.sa_flags = SA_SIGINFO | (signal.crash ? SA_ONSTACK | SA_NODEFER : 0);
    for (const EndSignal& each : kEndSignals) {
      if (!each.crash) sigaddset(&action.sa_mask, each.number);
    }
  }
  set_signal_action(signal.number, &action, nullptr);
}

// The first process of a container is not ended by what has no handler.
bool is_handled(const EndSignal& signal) {
  return wanted && is_checked_process() && (signal.crash || getpid() != 1);
}

void put_in_place_of_default(int number) {
  if (!wanted) return;
  const EndSignal* signal = end_signal(number);
  if (signal != nullptr && is_handled(*signal)) set_action(*signal, true);
}

bool action_is(const EndSignal& signal, bool handled) {
  struct sigaction present {};
  if (set_signal_action(signal.number, nullptr, &present) != 0) return false;
  return handled ? present.sa_sigaction == handle_end_signal : present.sa_handler == SIG_DFL;
}

uint32_t own_stack(uint32_t size) {
  void* memory = map_guarded(size, {});
  return memory != MAP_FAILED ? address_of(memory) : 0;
}

bool asked_for() {
  const char* value = environment("QUARL_END_SIGNALS");
  return value != nullptr && strcmp(value, "1") == 0;
}

}  // namespace

void register_end_signals() {
  set_stand_in({handle_end_signal, put_in_place_of_default});
}

void install_end_signals() {
  if (!asked_for()) return;
  if (!wanted) {
    step_stacks = own_stack((kSteps + 1) * kStepStack);
    give_signal_stacks();
  }
  wanted = true;
  for (const EndSignal& each : kEndSignals) {
    if (is_handled(each) && action_is(each, false)) set_action(each, true);
  }
}

void withdraw_end_signals() {
  for (const EndSignal& each : kEndSignals) {
    if (wanted && action_is(each, true)) set_action(each, false);
  }
}

}  // namespace quarl
