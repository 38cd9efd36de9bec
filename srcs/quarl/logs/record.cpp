#include "logs/record.h"

#include <string.h>

#include "logs/record_buffer.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/record_head.h"

namespace quarl {
namespace {

void flush_when_full() REQUIRES(hook_mutex) {
  if (primary_buffer.full()) flush_to_record_log();
}

// As stored in the header: also the operation of a block that has the info word without a trace.
void fill_from_header(Address p, OpRecord* record) {
  const Layout layout = Layout::of_block(p);
  const TraceInfo info{layout.trace_info ? field_at(p, layout.trace_info_offset()) : 0};
  record->tid = layout.tid ? field_at(p, layout.tid_offset()) : 0;
  record->time = layout.time ? field_at(p, layout.time_offset()) : 0;
  record->seq_num = layout.time ? field_at(p, layout.seq_offset()) : 0;
  record->operation = info.operation();
  record->stack_depth = static_cast<uint8_t>(info.depth());
}

void fill_from_call(const Flags& flags, Operation op, const CallTrace& trace, OpRecord* record) REQUIRES(hook_mutex) {
  stamp_thread(flags, record);
  stamp_time(flags, record);
  record->operation = op;
  record->stack_depth = static_cast<uint8_t>(trace.depth);
}

}  // namespace

void stamp_time(const Flags& flags, OpRecord* record) {
  const bool timed = flags.in_force(kHeadTime);
  record->time = timed ? static_cast<uint32_t>(clock_sec) : 0;
  record->seq_num = timed ? ++last_seq_num : 0;
}

void stamp_thread(const Flags& flags, OpRecord* record) {
  record->tid = flags.in_force(kHeadTid) ? static_cast<uint32_t>(current_tid()) : 0;
}

void set_record_trace(const CallTrace& trace, OpRecord* record) {
  const auto bytes = sizeof(uint32_t) * static_cast<size_t>(trace.depth);
  memcpy(record->trace, trace.words, bytes);
  memset(record->trace + trace.depth, 0, sizeof record->trace - bytes);
}

[[gnu::noinline]] void record_block_operation(Address p, const Flags& flags, Operation op, RecordKind kind,
                                              const CallTrace& trace) {
  if (primary_buffer.full()) return;
  OpRecord* record = primary_buffer.take_slot();
  if (kind == kKindReleased) {
    fill_from_call(flags, op, trace, record);
  } else {
    fill_from_header(p, record);
  }
  record->result = kind;
  record->from_file = 0;
  record->size = user_size_of(p);
  record->start_addr = p;
  set_record_trace(trace, record);
  flush_when_full();
}

void record_failed_operation(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace) {
  if (primary_buffer.full()) return;
  OpRecord* record = primary_buffer.take_slot();
  fill_from_call(flags, op, trace, record);
  record->result = kKindFailed;
  record->from_file = 0;
  record->size = size;
  record->start_addr = 0;
  set_record_trace(trace, record);
  flush_when_full();
}

void record_mapping(const OpRecord& record) {
  if (primary_buffer.full()) return;
  *primary_buffer.take_slot() = record;
  flush_when_full();
}

void fill_live_block_record(Address p, OpRecord* record) {
  memset(record, 0, kRecordHeadSize);
  qr_fill_trace_info(p, record, kKindAllocated);
  const int depth = record->stack_depth;
  copy_block_trace(p - qr_trace_offset(p, depth), depth, record);
}

void record_live_block(Address p) {
  if (primary_buffer.capacity == 0) return;
  fill_live_block_record(p, primary_buffer.take_slot());
  if (primary_buffer.full()) flush_to_snapshot_log();
}

}  // namespace quarl
