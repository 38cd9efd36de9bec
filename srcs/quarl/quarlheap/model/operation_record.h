// SPDX-License-Identifier: Apache-2.0
// The records of what the hooks did, on their way to the record log: from the block, or from the present call.
#pragma once

#include "logs/format.h"
#include "logs/records/record.h"
#include "quarlheap/model/block_header.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

namespace detail {

// The next record with what all of them have, for the caller to complete; null: it is dropped.
[[gnu::always_inline]] inline OpRecord* begin_record(RecordKind kind, uint32_t size, Address address,
                                                     const CallTrace& trace) REQUIRES(hook_mutex) {
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
[[gnu::always_inline]] inline void fill_from_header(const SoundBlock& block, OpRecord* record) {
  const HeaderFields fields = block.fields();
  record->tid = fields.tid;
  record->time = fields.time;
  record->seq_num = fields.seq_num;
  record->operation = fields.info.operation();
  record->stack_depth = static_cast<uint8_t>(fields.info.depth());
}

[[gnu::always_inline]] inline void fill_from_call(const Flags& flags, Operation op, OpRecord* record)
    REQUIRES(hook_mutex) {
  stamp_thread(flags, record);
  stamp_time(flags, record);
  record->operation = op;
}

}  // namespace detail

// A block was made, or is live again: what its header says, with this trace.
[[gnu::always_inline]] inline void record_allocation(const SoundBlock& block, const CallTrace& trace)
    REQUIRES(hook_mutex) {
  OpRecord* record = detail::begin_record(kKindAllocated, block.size(), block.p(), trace);
  if (record == nullptr) return;
  detail::fill_from_header(block, record);
  record_filled();
}

// A block was released: with the present thread, time and trace.
[[gnu::always_inline]] inline void record_release(const SoundBlock& block, const Flags& flags, Operation op,
                                                  const CallTrace& trace) REQUIRES(hook_mutex) {
  OpRecord* record = detail::begin_record(kKindReleased, block.size(), block.p(), trace);
  if (record == nullptr) return;
  detail::fill_from_call(flags, op, record);
  record_filled();
}

// A call that failed.
void record_failure(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace) REQUIRES(hook_mutex);

}  // namespace quarl
