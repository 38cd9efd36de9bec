// SPDX-License-Identifier: Apache-2.0
// What the checker keeps per thread, in static thread-local storage: reachable without a call or an allocation from
// the first instruction of a thread to its last, in signal handlers too.
#pragma once

#include <cstdint>

#include "platform/libc_hooks.h"

namespace quarl {

struct ThreadProf;

struct ThreadCache {
  // Above 0 while the thread is inside a hook or the checker's own work: the public entries then go straight to the
  // raw ones. First, because the entries written in assembly read it.
  int32_t hook_depth;
  int32_t tid;          // 0: not asked yet
  bool ending;          // released from its parking place: what it allocates on its way out must not stop it again
  ThreadProf* prof;     // the thread's statistics entry, null: not looked up yet
  uintptr_t stack_low;  // the stack that the thread was created with, [low, high); 0, 0: not known yet
  uintptr_t stack_high;
};

}  // namespace quarl

extern "C" __attribute__((visibility("hidden"))) constinit thread_local quarl::ThreadCache quarl_thread_cache;

namespace quarl {

inline ThreadCache& thread_cache() {
  return quarl_thread_cache;
}

// Called on each thread when it first asks for its id, which it knows then; null for nobody. Under the hook lock or
// not, in signal handlers too.
using ThreadGreeter = void (*)();
extern ThreadGreeter thread_greeter;

// Asks for the id of the calling thread, and has it greeted.
[[gnu::cold, gnu::noinline]] int meet_thread();

// Kernel task id of the calling thread: one system call per thread.
inline int current_tid() {
  const int tid = thread_cache().tid;
  return __builtin_expect(tid != 0, 1) ? tid : meet_thread();
}

// Marks the calling thread as inside the checker: its calls of public entries reach the raw ones.
class InsideChecker {
 public:
  InsideChecker() { ++thread_cache().hook_depth; }
  ~InsideChecker() { --thread_cache().hook_depth; }
  InsideChecker(const InsideChecker&) = delete;
  InsideChecker& operator=(const InsideChecker&) = delete;
};

// For a thread that leaves the checker without returning through it, or that exists anew in a forked child.
inline void leave_checker_for_good() {
  thread_cache().hook_depth = 0;
}
inline void forget_thread_identity() {
  thread_cache().tid = 0;
  thread_cache().prof = nullptr;
}

}  // namespace quarl
