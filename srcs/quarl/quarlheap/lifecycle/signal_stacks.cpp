// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/lifecycle/signal_stacks.h"

#include <signal.h>

#include "platform/confinement.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "state/own_memory.h"

namespace quarl {
namespace {

constexpr uint32_t kSize = 64 << 10;  // a handler of the program that asks for an alternate stack runs there, too
constexpr uint32_t kMost = 64;

// A thread takes a stack by its number, and keeps it when it ends: whoever finds that it is gone takes it over.
struct SignalStack {
  int owner;
  void* memory;  // null until the first owner has mapped it; the owner's
};
constinit SignalStack stacks[kMost]{};

bool take_over(SignalStack& stack, int owner, int self) {
  return __atomic_compare_exchange_n(&stack.owner, &owner, self, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED);
}

// Its own of before (threads get numbers again), one of nobody, one of a thread that is gone; null when there is none.
SignalStack* find_stack(int self) {
  for (SignalStack& each : stacks) {
    const int owner = __atomic_load_n(&each.owner, __ATOMIC_ACQUIRE);
    if (owner == self || (owner == 0 && take_over(each, 0, self))) return &each;
  }
  for (SignalStack& each : stacks) {
    const int owner = __atomic_load_n(&each.owner, __ATOMIC_ACQUIRE);
    if (!sys::thread_exists(owner) && take_over(each, owner, self)) return &each;
  }
  return nullptr;
}

// A forked child has its parent's stack under a number of its own.
void keep_stack(const void* memory, int self) {
  for (SignalStack& each : stacks) {
    if (each.memory == memory) each.owner = self;
  }
}

void give_stack() {
  stack_t present{};
  if (confined() || sigaltstack(nullptr, &present) != 0) return;
  const int self = current_tid();
  if ((present.ss_flags & SS_DISABLE) == 0) return keep_stack(present.ss_sp, self);
  SignalStack* stack = find_stack(self);
  if (stack == nullptr) return;
  if (stack->memory == nullptr) {
    void* memory = map_guarded(kSize, {});
    if (memory == MAP_FAILED) return;
    stack->memory = memory;
  }
  const stack_t own = {stack->memory, 0, kSize};
  sigaltstack(&own, nullptr);
}

void greet_thread() {
  const KeepErrno keep;
  give_stack();
}

}  // namespace

void give_signal_stacks() {
  thread_greeter = greet_thread;
  greet_thread();
}

}  // namespace quarl
