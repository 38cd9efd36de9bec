// SPDX-License-Identifier: Apache-2.0
// Operation records on their way to the record log: one for every hooked operation while QUARL_OUTPUT_LOG is in force.
// Without an allocation, and without a system call until the buffer is full.
#pragma once

#include <string.h>

#include "logs/format.h"
#include "state/hook_lock.h"
#include "state/settings.h"

namespace quarl {

// A record to be filled in place; null while there is no room: the record is dropped. Each is followed by
// record_filled.
OpRecord* next_record() REQUIRES(hook_mutex);
void record_filled() REQUIRES(hook_mutex);

// A copy of a record.
void put_record(const OpRecord& record) REQUIRES(hook_mutex);

// Who and when, as release, failure and mapping records carry it: time and a fresh sequence number while
// QUARL_HEAD_TIME is in force, the thread while QUARL_HEAD_TID is.
void stamp_time(const Flags& flags, OpRecord* record) REQUIRES(hook_mutex);
void stamp_thread(const Flags& flags, OpRecord* record);

// The words from `depth` to `before`, at most all.
[[gnu::cold, gnu::noinline]] void clear_trace_behind(int depth, int before, OpRecord* record);

// So many words, [0, kMaxTrace]: the older record's trace gives way to them, and zeros stay behind. Of a trace only
// what is there gets written.
[[gnu::always_inline]] inline void set_record_trace(const uint32_t* words, int depth, OpRecord* record) {
  const int before = record->stack_depth;
  record->stack_depth = static_cast<uint8_t>(depth);
  if (__builtin_expect(depth == kDefaultDepth, 1)) {  // as a few words, without a call
    memcpy(record->trace, words, sizeof(uint32_t) * kDefaultDepth);
  } else {
    memcpy(record->trace, words, sizeof(uint32_t) * static_cast<size_t>(depth));
  }
  if (__builtin_expect(before > depth, 0)) clear_trace_behind(depth, before, record);
}

// After shut-down: records that threads still make are dropped.
void stop_recording() REQUIRES(hook_mutex);

}  // namespace quarl
