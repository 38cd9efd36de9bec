#include "quarlheap/model/operation_record.h"

#include "logs/records/record.h"

namespace quarl {
namespace {

// The next record with what all of them have, for the caller to complete; null: it is dropped.
OpRecord* begin_record(RecordKind kind, uint32_t size, Address address, const CallTrace& trace) REQUIRES(hook_mutex) {
  OpRecord* record = next_record();
  if (__builtin_expect(record == nullptr, 0)) return nullptr;
  record->result = kind;
  record->from_file = 0;
  record->size = size;
  record->start_addr = address;
  set_record_trace(trace.words, trace.depth, record);
  return record;
}

// The operation, other than in a report, also of a block that has the info word without a trace.
void fill_from_header(SoundBlock block, OpRecord* record) {
  const HeaderFields fields = block.fields();
  record->tid = fields.tid;
  record->time = fields.time;
  record->seq_num = fields.seq_num;
  record->operation = fields.info.operation();
  record->stack_depth = static_cast<uint8_t>(fields.info.depth());
}

void fill_from_call(const Flags& flags, Operation op, OpRecord* record) REQUIRES(hook_mutex) {
  stamp_thread(flags, record);
  stamp_time(flags, record);
  record->operation = op;
}

}  // namespace

[[gnu::noinline]] void record_allocation(SoundBlock block, const CallTrace& trace) {
  OpRecord* record = begin_record(kKindAllocated, block.size(), block.p(), trace);
  if (record == nullptr) return;
  fill_from_header(block, record);
  record_filled();
}

[[gnu::noinline]] void record_release(SoundBlock block, const Flags& flags, Operation op, const CallTrace& trace) {
  OpRecord* record = begin_record(kKindReleased, block.size(), block.p(), trace);
  if (record == nullptr) return;
  fill_from_call(flags, op, record);
  record_filled();
}

void record_failure(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace) {
  OpRecord* record = begin_record(kKindFailed, size, 0, trace);
  if (record == nullptr) return;
  fill_from_call(flags, op, record);
  record_filled();
}

}  // namespace quarl
