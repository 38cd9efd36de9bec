// Is one block sound?
#pragma once

#include <string.h>

#include "quarlheap/model/block_header.h"

namespace quarl {

enum FaultCode : int {
  QR_FAULT_NONE = 0,
  QR_FAULT_DOUBLE_FREE = 1,  // the block was released before
  QR_FAULT_HEAD = 2,         // a write below the block
  QR_FAULT_TAIL = 3,         // a write past the user's bytes
  QR_FAULT_INVALID = 4,      // for reports only
};

// Reads only: the word before the pointer, which must be there, and what can be a block's. 0, 1, 2 or 3. A link that
// leads to where no block can be is a damaged head, as is a header whose claims cannot be.
FaultCode qr_check_block(DoubtfulBlock block) REQUIRES(hook_mutex);

// The rest of the check, of a block that names itself and whose links were looked at: 0, 2 or 3.
[[gnu::always_inline]] inline FaultCode check_linked_block(const BoundedBlock& block);

// The chunk that the allocator gives for the bytes that the hook asked of it.
inline uint32_t expected_chunk(const BoundedBlock& block) {
  return chunk_size_for(block.size() + block.offset() + block.layout().guard_size());
}

// Whether a chunk that is not the expected one is off by no more than the allocator's own rounding.
[[gnu::noinline]] bool chunk_tolerable(BoundedBlock block);  // a copy: the original can stay in registers

// Whether the header agrees with the allocator's chunk and with the memory that is there. Needs no lock.
[[gnu::always_inline]] inline bool header_fits(const BoundedBlock& block) {
  if (!block) return false;
  const ChunkWord chunk = block.chunk();
  const bool usual = chunk.is_ordinary(expected_chunk(block)) && block.raw_is_aligned();
  return (__builtin_expect(usual, 1) || chunk_tolerable(block)) && block.end_exists();
}

inline FaultCode check_linked_block(const BoundedBlock& block) {
  if (!header_fits(block)) return QR_FAULT_HEAD;
  if (!block.layout().guard()) return QR_FAULT_NONE;
  return memcmp(pointer_to(block.p() + block.size()), kTailGuard, sizeof kTailGuard) == 0 ? QR_FAULT_NONE
                                                                                          : QR_FAULT_TAIL;
}

}  // namespace quarl
