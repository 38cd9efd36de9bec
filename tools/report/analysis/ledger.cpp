// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/ledger.h"

#include <algorithm>
#include <numeric>

#include "report/analysis/large_blocks.h"

namespace quarl::report {
namespace {

// No allocator makes a mapping of its own for a block smaller than this, unless it is aligned.
constexpr uint32_t kMinCarriedBlock = 4096;
// Records whose blocks and traces are looked up together.
constexpr size_t kGroup = 32;

}  // namespace

void Ledger::hold(uint64_t bytes) {
  held_.bytes += bytes;
  held_.peak = std::max(held_.peak, held_.bytes);
}

void Ledger::tell_came(LiveEntry& entry, const OpRecord& by) {
  entry.born = taken_;
  for (HeldWatcher* watcher : watchers_) watcher->came(entry, by);
}

void Ledger::tell_went(const LiveEntry& entry, Going how, const OpRecord& by) const {
  for (HeldWatcher* watcher : watchers_) watcher->went(entry, how, by);
}

void Ledger::apply(std::span<const OpRecord> records, const Observer& observer) {
  for (; records.size() > kGroup; records = records.subspan(kGroup)) apply_group(records.first(kGroup), observer);
  apply_group(records, observer);
}

void Ledger::apply_group(std::span<const OpRecord> records, const Observer& observer) {
  uint64_t hashes[kGroup];  // of the traces of what is to be held
  look_up(records, hashes);
  const uint64_t* hash = hashes;
  for (const OpRecord& record : records) {
    if (is_allocation(record)) {
      allocate(record, traces_.intern(trace_of(record), *hash++));
    } else {
      apply_other(record);
    }
    for (HeldWatcher* watcher : watchers_) watcher->passed(record, *this);
    ++taken_;
    if (observer) observer(record, *this);
  }
}

// The accesses to memory of a whole group overlap; one record after the other would wait for each of its own.
void Ledger::look_up(std::span<const OpRecord> records, uint64_t* hashes) const {
  const OpRecord* held[kGroup];
  size_t count = 0;
  for (const OpRecord& record : records) {
    blocks_.prefetch_slot(record.start_addr);
    held[count] = &record;
    count += is_allocation(record);
  }
  for (size_t index = 0; index < count; ++index) {
    hashes[index] = TraceTable::hash(trace_of(*held[index]));
    traces_.prefetch_slot(hashes[index]);
  }
  for (const OpRecord& record : records) blocks_.prefetch_block(record.start_addr);
  for (size_t index = 0; index < count; ++index) traces_.prefetch_entry(hashes[index]);
}

void Ledger::apply_other(const OpRecord& record) {
  switch (record.result) {
    case kKindAllocated:
      return count(record);
    case kKindReleased:
      return release(record);
    case kKindFailed:
      last_number_ = std::max(last_number_, record.seq_num);
      ++totals_[record.operation].calls;
      ++totals_[record.operation].failed;
      return;
    default:
      return add_fault(record);
  }
}

uint64_t Ledger::calls() const {
  return std::accumulate(std::begin(totals_), std::end(totals_), uint64_t{0},
                         [](uint64_t sum, const OperationTotals& totals) { return sum + totals.calls; });
}

void Ledger::count(const OpRecord& record) {
  bool maps_file = record.from_file != 0 && record.operation == kOpMmap;
  count(maps_file ? int{kOpMmapFile} : int{record.operation}, record.size);
}

void Ledger::count(int operation, uint32_t bytes) {
  ++totals_[operation].calls;
  totals_[operation].bytes += bytes;
}

// The number of a block that a failed resize has put back is its old one: nothing was allocated, and what was taken for
// its release was none.
bool Ledger::note_restored(const OpRecord& record) {
  restored_ = in_order_ && record.seq_num != 0 && record.seq_num <= last_number_;
  last_number_ = std::max(last_number_, record.seq_num);
  if (!restored_) return false;
  --totals_[kOpReallocRelease].calls;
  totals_[kOpReallocRelease].bytes -= record.size;
  return true;
}

void Ledger::allocate(const OpRecord& record, TraceId trace) {
  if (!note_restored(record)) count(record);
  if (record.operation == kOpChunkMap) return;
  ++held_.entries;
  is_mapping(record.operation) ? allocate_mapping(record, trace) : allocate_block(record, trace);
}

void Ledger::allocate_mapping(const OpRecord& record, TraceId trace) {
  LiveEntry entry;
  entry.fill(record, trace);
  LiveMapping& mapping = mappings_.insert(entry);
  tell_came(mapping.entry, record);
  if (entry.from_file) {
    held_.file_bytes += entry.size;
    held_.file_peak = std::max(held_.file_peak, held_.file_bytes);
  } else {
    hold(entry.size);
  }
}

void Ledger::allocate_block(const OpRecord& record, TraceId trace) {
  LiveEntry& block = blocks_.at(record.start_addr);
  if (block.address != 0) {
    tell_went(block, Going::kLost, record);
    held_.bytes -= block.size;
    --held_.entries;
    ++lost_releases_;
  }
  block.fill(record, trace);
  if (record.size >= kMinCarriedBlock && !mappings_.empty()) mark_carrier(block);
  tell_came(block, record);
  hold(record.size);
}

// The block's bytes would be counted twice, once as the mapping that carries it.
void Ledger::mark_carrier(const LiveEntry& block) {
  LiveMapping* mapping = mappings_.containing(block.address);
  if (mapping == nullptr || mapping->carries_block || !fits_mapping(Extent(mapping->entry), Extent(block))) return;
  mapping->carries_block = true;
  tell_went(mapping->entry, Going::kCarried, {});
  held_.bytes -= mapping->entry.size;
  --held_.entries;
}

void Ledger::release(const OpRecord& record) {
  last_number_ = std::max(last_number_, record.seq_num);
  if (record.operation == kOpMunmap || record.operation == kOpMunmapFile) return release_mapping(record);
  count(record);
  released_ = record.size;
  if (record.operation == kOpChunkUnmap) return;
  const LiveEntry* block = blocks_.remove(record.start_addr);
  if (block == nullptr) {
    ++unknown_releases_;
    return;
  }
  tell_went(*block, Going::kReleased, record);
  held_.bytes -= block->size;
  --held_.entries;
}

void Ledger::count_unmapping(int operation, uint32_t bytes) {
  count(operation, bytes);
  released_ = bytes;
}

void Ledger::release_mapping(const OpRecord& record) {
  auto mapping = mappings_.remove(record.start_addr, record.size);
  if (!mapping) return count_unmapping(kOpMunmap, record.size);
  if (mapping->carries_block) return count_unmapping(kOpChunkUnmap, record.size);
  count_unmapping(mapping->entry.from_file ? kOpMunmapFile : kOpMunmap, mapping->entry.size);
  tell_went(mapping->entry, Going::kReleased, record);
  (mapping->entry.from_file ? held_.file_bytes : held_.bytes) -= mapping->entry.size;
  --held_.entries;
}

void Ledger::add_fault(const OpRecord& record) {
  faults_.add(record);
  if (in_order_) faults_.find_neighbours(blocks_);
}

// In a snapshot the mappings come after the blocks that they carry.
void Ledger::finish() {
  blocks_.for_each([&](const LiveEntry& block) {
    if (!in_order_ && !mappings_.empty()) mark_carrier(block);
  });
  faults_.find_neighbours(blocks_);
}

}  // namespace quarl::report
