#include "report/analysis/ledger.h"

#include <algorithm>

namespace quarl::report {
namespace {

// No allocator makes a mapping of its own for a block smaller than this.
constexpr uint32_t kMinCarriedBlock = 4096;

}  // namespace

void Ledger::hold(uint64_t bytes) {
  held_.bytes += bytes;
  held_.peak = std::max(held_.peak, held_.bytes);
}

void Ledger::allocate(const OpRecord& record) {
  if (record.start_addr == 0) return;
  uint32_t depth = record.stack_depth;
  LiveEntry entry = {record.start_addr, record.size,          traces_.intern({record.trace, depth}),
                     record.tid,        record.time,          record.seq_num,
                     record.operation,  record.from_file != 0};
  ++held_.entries;
  if (!is_mapping(entry)) return allocate_block(entry);
  mappings_.insert(entry);
  if (entry.from_file) {
    held_.file_bytes += entry.size;
  } else {
    hold(entry.size);
  }
}

void Ledger::allocate_block(const LiveEntry& block) {
  if (block.size >= kMinCarriedBlock && !mappings_.empty()) mark_carrier(block);
  if (auto old = blocks_.insert(block)) {
    held_.bytes -= old->size;
    --held_.entries;
    ++lost_releases_;
  }
  hold(block.size);
}

// The block's bytes would be counted twice, once as the mapping that carries it.
void Ledger::mark_carrier(const LiveEntry& block) {
  LiveMapping* mapping = mappings_.containing(block.address);
  if (mapping == nullptr || mapping->carries_block) return;
  mapping->carries_block = true;
  held_.bytes -= mapping->entry.size;
  --held_.entries;
}

void Ledger::release(const OpRecord& record) {
  if (record.operation == kOpMunmap || record.operation == kOpMunmapFile) return release_mapping(record);
  auto block = blocks_.remove(record.start_addr);
  if (!block) {
    ++unknown_releases_;
    return;
  }
  held_.bytes -= block->size;
  --held_.entries;
}

void Ledger::release_mapping(const OpRecord& record) {
  auto mapping = mappings_.remove(record.start_addr, record.size);
  if (!mapping || mapping->carries_block) return;
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
    if (block.size >= kMinCarriedBlock && !mappings_.empty()) mark_carrier(block);
  });
  faults_.find_neighbours(blocks_);
}

}  // namespace quarl::report
