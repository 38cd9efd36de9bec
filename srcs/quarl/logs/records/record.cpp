// SPDX-License-Identifier: Apache-2.0
#include "logs/records/record.h"

#include "logs/files/log_files.h"
#include "platform/thread_cache.h"
#include "state/clock.h"

namespace quarl {

OpRecord* next_record() {
  return primary_buffer.full() ? nullptr : primary_buffer.take_slot();
}

void record_filled() {
  if (__builtin_expect(primary_buffer.full(), 0)) flush_to_record_log();
}

void put_record(const OpRecord& record) {
  OpRecord* slot = next_record();
  if (slot == nullptr) return;
  *slot = record;
  record_filled();
}

void stamp_time(const Flags& flags, OpRecord* record) {
  const bool timed = flags.in_force(kHeadTime);
  record->time = timed ? static_cast<uint32_t>(clock_sec) : 0;
  record->seq_num = timed ? ++last_seq_num : 0;
}

void stamp_thread(const Flags& flags, OpRecord* record) {
  record->tid = flags.in_force(kHeadTid) ? static_cast<uint32_t>(current_tid()) : 0;
}

void clear_trace_behind(int depth, int before, OpRecord* record) {
  const int end = before < kMaxTrace ? before : kMaxTrace;
  memset(record->trace + depth, 0, sizeof(uint32_t) * static_cast<size_t>(end > depth ? end - depth : 0));
}

void stop_recording() {
  primary_buffer.shut();
}

}  // namespace quarl
