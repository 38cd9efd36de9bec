// SPDX-License-Identifier: Apache-2.0
// The threads that are stopped, for a debugger: it cannot know them otherwise in a core file.
#pragma once

#include <cstdint>

namespace quarl {

enum class StopReason : uint32_t { kFault, kHeapLimit, kStackLimit };

struct ParkedThread {
  int32_t tid;  // 0: a free place
  StopReason reason;
};
inline constexpr int kParkedPlaces = 32;  // more are not noted
extern ParkedThread parked_threads[kParkedPlaces];

// On the thread itself, without the lock.
void note_parked(int tid, StopReason reason);
void forget_parked(int tid);
// In a forked child, which has none of its parent's.
void forget_all_parked();

}  // namespace quarl
