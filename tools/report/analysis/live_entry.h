// SPDX-License-Identifier: Apache-2.0
// A block or mapping that the application holds.
#pragma once

#include "quarl/logs/format.h"
#include "report/analysis/trace_table.h"

namespace quarl::report {

struct LiveEntry {
  uint32_t address;  // as the application sees it; 0 marks a free slot of a table
  uint32_t size;     // bytes asked for
  TraceId trace;
  uint32_t tid;       // 0 when not recorded
  uint32_t time;      // seconds since the epoch, 0 when not recorded
  uint32_t sequence;  // 0 when not recorded
  uint32_t born;      // records that the ledger had taken before that of its allocation
  uint8_t operation;  // Operation
  bool from_file;

  // From the record of its allocation.
  void fill(const OpRecord& record, TraceId its_trace) {
    address = record.start_addr;
    size = record.size;
    trace = its_trace;
    tid = record.tid;
    time = record.time;
    sequence = record.seq_num;
    operation = record.operation;
    from_file = record.from_file != 0;
  }
};

inline bool is_mapping(uint8_t operation) {
  return operation == kOpMmap || operation == kOpMmapFile;
}
inline bool is_mapping(const LiveEntry& entry) {
  return is_mapping(entry.operation);
}

// The record of an allocation, which holds something from then on. Both are looked at always: this runs for every
// record of a log, and a branch would be guessed wrong at every other.
inline bool is_allocation(const OpRecord& record) {
  return (record.result == kKindAllocated) & (record.start_addr != 0);
}

// A block that was resized from a shorter trace has zeros behind it.
inline Trace trace_of(const OpRecord& record) {
  size_t depth = record.stack_depth;
  while (depth != 0 && record.trace[depth - 1] == 0) --depth;
  return {record.trace, depth};
}

}  // namespace quarl::report
