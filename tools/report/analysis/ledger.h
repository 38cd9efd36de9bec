// SPDX-License-Identifier: Apache-2.0
// What the records add up to: everything held, and what each operation did. Memory grows with the distinct traces and
// with what is held at once, not with the number of records.
#pragma once

#include <functional>
#include <span>

#include "report/analysis/fault_list.h"
#include "report/analysis/held_watcher.h"
#include "report/analysis/live_blocks.h"
#include "report/analysis/live_mappings.h"
#include "report/analysis/trace_table.h"

namespace quarl::report {

struct Held {
  uint64_t bytes = 0;  // heap blocks and anonymous mappings, without those that the allocator made for large blocks
  uint64_t file_bytes = 0;
  uint64_t entries = 0;  // blocks and mappings of both kinds
  uint64_t peak = 0;     // of bytes
  uint64_t file_peak = 0;
};

struct OperationTotals {
  uint64_t calls = 0;
  uint64_t failed = 0;
  uint64_t bytes = 0;
  OperationTotals& operator+=(const OperationTotals& other) {
    calls += other.calls;
    failed += other.failed;
    bytes += other.bytes;
    return *this;
  }
};

class Ledger {
 public:
  // `in_order`: the records are those of a record log in the order in which they were written; else those of one
  // snapshot, all of one moment.
  explicit Ledger(bool in_order) : in_order_(in_order) {}

  // Takes records in their order, those of a record log as OrderedRecords gives them; `observer`, if there is one, sees
  // each after the ledger has taken it.
  using Observer = std::function<void(const OpRecord&, const Ledger&)>;
  void apply(std::span<const OpRecord> records, const Observer& observer = nullptr);
  // Is told of every change from now on.
  void watch(HeldWatcher& watcher) { watchers_.push_back(&watcher); }
  // Before the first record, see FaultList.
  void choose_faults(FaultList::Takes takes) { faults_.choose(std::move(takes)); }
  // A fault record found outside the snapshot's own records.
  void add_fault(const OpRecord& record);
  // To be called after the last record.
  void finish();

  const Held& held() const { return held_; }
  uint32_t taken() const { return taken_; }  // records; while a watcher is told, those before the one that made it so
  const OperationTotals& totals(int operation) const { return totals_[operation]; }
  uint64_t calls() const;  // of all operations
  const TraceTable& traces() const { return traces_; }
  const FaultList& faults() const { return faults_; }
  // The last record told of a block that is held again, because its resize failed.
  bool restored() const { return restored_; }
  // Bytes that the last release took, as the library counts them: all of a mapping when its end is unmapped.
  uint32_t released() const { return released_; }
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
  void apply_group(std::span<const OpRecord> records, const Observer& observer);
  void look_up(std::span<const OpRecord> records, uint64_t* hashes) const;
  void apply_other(const OpRecord& record);
  void count(const OpRecord& record);
  void count(int operation, uint32_t bytes);
  void count_unmapping(int operation, uint32_t bytes);
  bool note_restored(const OpRecord& record);
  void allocate(const OpRecord& record, TraceId trace);
  void allocate_mapping(const OpRecord& record, TraceId trace);
  void allocate_block(const OpRecord& record, TraceId trace);
  void release(const OpRecord& record);
  void release_mapping(const OpRecord& record);
  void mark_carrier(const LiveEntry& block);
  void hold(uint64_t bytes);
  void tell_came(LiveEntry& entry, const OpRecord& by);
  void tell_went(const LiveEntry& entry, Going how, const OpRecord& by) const;

  bool in_order_;
  std::vector<HeldWatcher*> watchers_;
  uint32_t taken_ = 0;  // records
  TraceTable traces_;
  LiveBlocks blocks_;
  LiveMappings mappings_;
  FaultList faults_;
  Held held_;
  OperationTotals totals_[kOpCount];
  uint32_t last_number_ = 0;  // the highest of a record
  bool restored_ = false;
  uint32_t released_ = 0;
  uint64_t unknown_releases_ = 0;
  uint64_t lost_releases_ = 0;
};

}  // namespace quarl::report
