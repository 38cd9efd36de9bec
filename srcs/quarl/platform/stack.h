// SPDX-License-Identifier: Apache-2.0
// The part of the calling thread's stack that a walk may read.
#pragma once

#include <cstdint>

#include "platform/maps_reader.h"
#include "platform/thread_cache.h"

namespace quarl {

struct StackRange {
  uintptr_t low;
  uintptr_t high;  // all bytes of [present frame, high) are mapped
};

// Called by the constructor, for each line: that of the main thread's stack is taken, when it is that thread that asks.
void learn_main_stack(const MapsLine& mapping);

// Whether [low, end) lies on the stack that the thread was created with, when that is known.
inline bool own_stack_holds(uintptr_t low, uintptr_t end) {
  return low >= thread_cache().stack_low && end <= thread_cache().stack_high;
}

[[gnu::cold, gnu::noinline]] StackRange find_stack(uintptr_t present_frame);

// The stack on which `present_frame` lies: the thread's own after a look at /proc/self/maps once per thread; on an
// alternate signal stack that one; on a stack of unknown origin (a coroutine's) the rest of the present page.
inline StackRange stack_around(uintptr_t present_frame) {
  const ThreadCache& cache = thread_cache();
  if (__builtin_expect(present_frame >= cache.stack_low && present_frame < cache.stack_high, 1)) {
    return {cache.stack_low, cache.stack_high};
  }
  return find_stack(present_frame);
}

}  // namespace quarl
