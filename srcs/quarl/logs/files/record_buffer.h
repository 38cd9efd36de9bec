// SPDX-License-Identifier: Apache-2.0
// Records on their way to a file: collected here, written in one piece when the buffer is full.
//
// Of a trace only the words that there are get written here. Zeros lie behind them all the same: a slot is zero when it
// is used the first time, and whoever fills it again clears what the record before had more (set_record_trace).
#pragma once

#include "logs/format.h"

namespace quarl {

struct RecordBuffer {
  OpRecord* records;
  int16_t capacity;  // records, [0, 32767]; 0 when there is no memory: every record is dropped
  int16_t count;
  int16_t cleared;  // slots that were used before

  // So many bytes, from the raw allocator while the hooks are installed. "No memory to buf.\n" on failure.
  void allocate(uint32_t bytes);
  bool usable() const { return capacity > 0; }
  bool full() const { return count >= capacity; }
  // The next free slot, already counted; the buffer must not be full. It holds an older record, or zeros.
  OpRecord* take_slot() {
    if (__builtin_expect(count == cleared, 0)) clear_slot();
    return &records[count++];
  }
  void clear() { count = 0; }
  // From now on every record is dropped without a word.
  void shut() { capacity = count = 0; }

 private:
  [[gnu::cold, gnu::noinline]] void clear_slot();
};

}  // namespace quarl
