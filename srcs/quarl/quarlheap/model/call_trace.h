// SPDX-License-Identifier: Apache-2.0
// The call trace: return addresses from the hook back towards main or a thread's start, found by walking the chain of
// frame pointers. Reads memory only: no lock, no allocation. Leaves neither the calling thread's stack nor the
// process's code, so that garbage in a frame pointer ends the trace and nothing else.
#pragma once

#include <cstdint>

#include "logs/format.h"

namespace quarl {

struct CallTrace {
  int depth = 0;              // valid words, [0, kMaxTrace]
  uint32_t words[kMaxTrace];  // entry 0 is nearest to the hook; undefined from depth on
};

// The frame of a hook, in which its trace begins.
using HookFrame = uintptr_t;
[[gnu::always_inline]] inline HookFrame this_frame() {
  return reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
}

// The frame of the hook, or of another function that the application calls, that led to `frame` in this library.
HookFrame hook_frame_of(HookFrame frame);

// Fills buf[0 .. count) with at most max return addresses, the one into the hook's caller first; returns count.
int capture_trace(HookFrame frame, uint32_t* buf, int max);

}  // namespace quarl
