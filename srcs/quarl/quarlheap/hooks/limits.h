// SPDX-License-Identifier: Apache-2.0
// Allocations that fail on purpose, and limits that stop a thread. All act only while QUARL_PROF is in force.
#pragma once

#include <cstdint>

#include "state/settings.h"

extern "C" {
// Set by the application, a debugger or the quarl tool; no configuration item writes them.
extern QUARL_EXPORT unsigned heap_limit;   // the most bytes that the application may hold, initially 0xFFFFFFFF
extern QUARL_EXPORT unsigned stack_limit;  // compared with stack_use plus a request, initially 0xFFFFFFFF
extern QUARL_EXPORT unsigned stack_use;    // initially 0
}

namespace quarl {

// True when QUARL_RANDOM_FAIL wants this allocation to fail: about one in seven.
bool draw_failure();
inline bool random_failure(const Flags& flags) {
  return __builtin_expect(flags.in_force(kRandomFail | kProf), 0) && draw_failure();
}

// Stops the calling thread, which holds no lock, when a request of `size` bytes passes a limit in force.
void check_limits(const Flags& flags, uint32_t size);
inline void stop_past_limits(const Flags& flags, uint32_t size) {
  if (__builtin_expect(flags.any_in_force(kHeapLimit | kStackLimit), 0)) check_limits(flags, size);
}

}  // namespace quarl
