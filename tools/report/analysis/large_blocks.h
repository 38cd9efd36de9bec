// SPDX-License-Identifier: Apache-2.0
// Tells the mappings that the allocator made for large blocks from the application's own: a large block would be
// counted twice else. The allocator maps, and then the block is recorded, so that what follows a mapping tells what it
// is.
#pragma once

#include <span>
#include <unordered_set>

#include "report/analysis/live_entry.h"

namespace quarl::report {

struct Extent {
  uint32_t address;
  uint32_t size;  // bytes
  explicit Extent(const OpRecord& record) : address(record.start_addr), size(record.size) {}
  explicit Extent(const LiveEntry& entry) : address(entry.address), size(entry.size) {}
};

// Whether the block may be the one for which the anonymous mapping was made: it lies in it and ends where it ends, but
// for what pages and guard leave.
bool fits_mapping(Extent mapping, Extent block);

class LargeBlocks {
 public:
  // Gives mappings for large blocks, and their ends, operations of their own, kOpChunkMap and kOpChunkUnmap. Returns
  // how many of the records, from the first on, are decided; the rest is to be given again with what follows. With
  // `last` nothing follows, and all are. The records are those of a record log, in order.
  size_t mark(std::span<OpRecord> records, bool last);

 private:
  enum class Answer { kForBlock, kOwn, kUnknown };
  Answer look_ahead(std::span<const OpRecord> records, bool last) const;
  bool mark_mapping(std::span<OpRecord> records, bool last);

  std::unordered_set<uint32_t> starts_;  // of the mappings for blocks that are there now
};

}  // namespace quarl::report
