// What the records add up to: everything held, and what each operation did. Memory grows with the distinct traces and
// with what is held at once, not with the number of records.
#pragma once

#include "report/analysis/fault_list.h"
#include "report/analysis/live_blocks.h"
#include "report/analysis/live_mappings.h"
#include "report/analysis/trace_table.h"

namespace quarl::report {

struct Held {
  uint64_t bytes = 0;  // heap blocks and anonymous mappings, without the mappings that carry one large block
  uint64_t file_bytes = 0;
  uint64_t entries = 0;  // blocks and mappings of both kinds
  uint64_t peak = 0;     // of bytes
};

struct OperationTotals {
  uint64_t calls = 0;
  uint64_t failed = 0;
  uint64_t bytes = 0;
};

class Ledger {
 public:
  // `in_order`: the records are those of a record log in the order in which they were written; else those of one
  // snapshot, all of one moment.
  explicit Ledger(bool in_order) : in_order_(in_order) {}

  void apply(const OpRecord& record) {
    OperationTotals& totals = totals_[record.operation];
    switch (record.result) {
      case kKindAllocated:
        ++totals.calls;
        totals.bytes += record.size;
        return allocate(record);
      case kKindReleased:
        ++totals.calls;
        totals.bytes += record.size;
        return release(record);
      case kKindFailed:
        ++totals.calls;
        ++totals.failed;
        return;
      default:
        return add_fault(record);
    }
  }
  // Says that a record of the block at `address` comes soon.
  void expect(uint32_t address) const { blocks_.prefetch(address); }
  // A fault record found outside the snapshot's own records.
  void add_fault(const OpRecord& record);
  // To be called after the last record.
  void finish();

  const Held& held() const { return held_; }
  const OperationTotals& totals(int operation) const { return totals_[operation]; }
  const TraceTable& traces() const { return traces_; }
  const FaultList& faults() const { return faults_; }
  uint64_t unknown_releases() const { return unknown_releases_; }  // of heap blocks whose allocation is not in the log
  uint64_t lost_releases() const { return lost_releases_; }  // addresses given out twice without a release between

  // Visits every held block and mapping once, mappings that carry a block left out.
  template <typename Visit>
  void for_each_held(Visit visit) const {
    blocks_.for_each(visit);
    mappings_.for_each([&](const LiveMapping& mapping) {
      if (!mapping.carries_block) visit(mapping.entry);
    });
  }

 private:
  void allocate(const OpRecord& record);
  void allocate_block(const LiveEntry& block);
  void release(const OpRecord& record);
  void release_mapping(const OpRecord& record);
  void mark_carrier(const LiveEntry& block);
  void hold(uint64_t bytes);

  bool in_order_;
  TraceTable traces_;
  LiveBlocks blocks_;
  LiveMappings mappings_;
  FaultList faults_;
  Held held_;
  OperationTotals totals_[kOpCount];
  uint64_t unknown_releases_ = 0;
  uint64_t lost_releases_ = 0;
};

}  // namespace quarl::report
