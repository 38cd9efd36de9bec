// Records on their way to a file: collected here, written in one piece when the buffer is full.
#pragma once

#include "logs/format.h"
#include "logs/log_file.h"
#include "quarlheap/lock/hook_lock.h"

namespace quarl {

struct RecordBuffer {
  OpRecord* records;
  int16_t capacity;  // records, [0, 32767]; 0 when there is no memory: every record is dropped
  int16_t count;

  // trace_buf_size bytes, from the raw allocator while the hooks are installed. "No memory to buf.\n" on failure.
  void allocate();
  bool full() const { return count >= capacity; }
  // The next free slot, already counted; the buffer must not be full.
  OpRecord* take_slot() { return &records[count++]; }
};

extern RecordBuffer primary_buffer GUARDED_BY(hook_mutex);   // of the hooks and fault reports
extern RecordBuffer autosnap_buffer GUARDED_BY(hook_mutex);  // used while an automatic snapshot is written

// Write the primary buffer out, at the end of the record log or at the present position of the snapshot log, and empty
// it in any case. Failures are told on standard output.
void flush_to_record_log() REQUIRES(hook_mutex);
void flush_to_snapshot_log() REQUIRES(hook_mutex);

// After shut-down: records that threads still make are dropped without a word.
void stop_recording() REQUIRES(hook_mutex);

}  // namespace quarl
