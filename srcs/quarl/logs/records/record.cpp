#include "logs/records/record.h"

#include <string.h>

#include "logs/files/log_files.h"
#include "platform/thread_cache.h"
#include "state/clock.h"

namespace quarl {

OpRecord* next_record() {
  return primary_buffer.full() ? nullptr : primary_buffer.take_slot();
}

void record_filled() {
  if (primary_buffer.full()) flush_to_record_log();
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

void set_record_trace(const uint32_t* words, int depth, OpRecord* record) {
  const auto bytes = sizeof(uint32_t) * static_cast<size_t>(depth);
  memcpy(record->trace, words, bytes);
  memset(record->trace + depth, 0, sizeof record->trace - bytes);
}

void stop_recording() {
  primary_buffer.shut();
}

}  // namespace quarl
