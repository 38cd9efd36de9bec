// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/large_blocks.h"

namespace quarl::report {
namespace {

// Rounding up to pages, with what the allocator adds before it does so.
constexpr uint32_t kMostBehindBlock = 2 * 4096;
// Records of other threads that come between a mapping and its block at most; without thread ids the block is looked
// for in few, as all of the application's own mappings cost the whole search.
constexpr size_t kMostBetween = 16384;
constexpr size_t kMostWithoutThread = 256;

bool is_own_kind(const OpRecord& record, Operation operation, RecordKind kind) {
  return record.operation == operation && record.result == kind && record.from_file == 0;
}

bool is_block(const OpRecord& record) {
  return record.result == kKindAllocated && record.operation != kOpMmap && record.start_addr != 0;
}

}  // namespace

bool fits_mapping(Extent mapping, Extent block) {
  uint64_t end = uint64_t{mapping.address} + mapping.size;
  uint64_t block_end = uint64_t{block.address} + block.size;
  return block.address > mapping.address && block_end <= end && end - block_end < kMostBehindBlock;
}

// A thread records the mapping and the block with nothing of its own in between, but for the end of the mapping that
// the block had before it moved.
LargeBlocks::Answer LargeBlocks::look_ahead(std::span<const OpRecord> records, bool last) const {
  const OpRecord& mapping = records.front();
  size_t without_thread = 0;
  for (const OpRecord& record : records.subspan(1)) {
    if (is_block(record) && fits_mapping(Extent(mapping), Extent(record))) return Answer::kForBlock;
    bool of_old_place = is_own_kind(record, kOpMunmap, kKindReleased) && starts_.contains(record.start_addr);
    if (record.tid == mapping.tid && !of_old_place) return Answer::kOwn;
    if (record.tid == 0 && ++without_thread == kMostWithoutThread) return Answer::kOwn;
  }
  return last || records.size() > kMostBetween ? Answer::kOwn : Answer::kUnknown;
}

// The first of the records; false while nothing can be said.
bool LargeBlocks::mark_mapping(std::span<OpRecord> records, bool last) {
  OpRecord& mapping = records.front();
  Answer answer = look_ahead(records, last);
  if (answer == Answer::kUnknown) return false;
  if (answer == Answer::kOwn) {
    starts_.erase(mapping.start_addr);  // the end of one that was there is not in the log
    return true;
  }
  mapping.operation = kOpChunkMap;
  starts_.insert(mapping.start_addr);
  return true;
}

size_t LargeBlocks::mark(std::span<OpRecord> records, bool last) {
  for (size_t index = 0; index < records.size(); ++index) {
    OpRecord& record = records[index];
    if (record.operation != kOpMmap && record.operation != kOpMunmap) continue;
    if (is_own_kind(record, kOpMmap, kKindAllocated) && !mark_mapping(records.subspan(index), last)) return index;
    // One that was resized in place ends elsewhere than it did, which has no record: it is known by its start.
    if (is_own_kind(record, kOpMunmap, kKindReleased) && starts_.erase(record.start_addr) != 0) {
      record.operation = kOpChunkUnmap;
    }
  }
  return records.size();
}

}  // namespace quarl::report
