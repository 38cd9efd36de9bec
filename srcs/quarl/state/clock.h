// SPDX-License-Identifier: Apache-2.0
// The checker clock and the one numbering of blocks and records: what headers and records are stamped with.
#pragma once

#include <cstdint>

#include "state/hook_lock.h"

namespace quarl {

// Time of day at the last tick of the interval timer; 0 while that timer has never run. Written in signal handlers.
extern int clock_sec;
extern int clock_usec;

// The last sequence number given out; blocks and timed records share one numbering, which begins at 1.
inline constexpr uint32_t& last_seq_num GUARDED_BY(hook_mutex) = hot_words.last_seq_num;

// The last one that a forked child found given out; 0 in a process that is none.
extern uint32_t inherited_seq_num GUARDED_BY(hook_mutex);

// A block or mapping of that number is the process's own, and not what its parent had at the fork. What carries no
// number (0) counts as its own.
inline bool is_own_seq_num(uint32_t seq_num) REQUIRES(hook_mutex) {
  return inherited_seq_num == 0 || seq_num == 0 || static_cast<int32_t>(seq_num - inherited_seq_num) > 0;
}

// Takes the time of day. Safe in a signal handler.
void read_clock();

// Seconds since the epoch, at this moment.
uint32_t seconds_now();

}  // namespace quarl
