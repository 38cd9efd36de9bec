// SPDX-License-Identifier: Apache-2.0
// Is one block sound?
#pragma once

#include <string.h>

#include "quarlheap/model/used_list.h"

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

// The bytes that the hook asked of the allocator.
inline uint32_t raw_size(Address p, uint32_t offset, HeaderLayout layout) {
  return header::word(p, kUserSize) + offset + layout.guard_size();
}

// Whether a chunk that is not the expected one is off by no more than the allocator's own rounding. `offset` and
// `layout` are a bounded block's.
[[gnu::noinline]] bool chunk_tolerable(Address p, uint32_t offset, HeaderLayout layout);

// Whether the header agrees with the allocator's chunk and with the memory that is there. Needs no lock.
[[gnu::always_inline]] inline bool header_fits(const BoundedBlock& block) {
  if (!block) return false;
  const ChunkWord chunk = block.chunk();
  const uint32_t expected = chunk_size_above_least(raw_size(block.p(), block.offset(), block.layout()));
  const bool usual = chunk.is_ordinary(expected) && block.raw_is_aligned();
  return (__builtin_expect(usual, 1) || chunk_tolerable(block.p(), block.offset(), block.layout())) &&
         block.end_exists();
}

inline FaultCode check_linked_block(const BoundedBlock& block) {
  if (!header_fits(block)) return QR_FAULT_HEAD;
  if (!block.layout().guard()) return QR_FAULT_NONE;
  uint32_t behind = 0;
  memcpy(&behind, pointer_to(block.p() + block.size()), sizeof behind);
  return behind == kTailGuardWord ? QR_FAULT_NONE : QR_FAULT_TAIL;
}

// Whether a link leads to where a block can be, for certain.
[[gnu::always_inline]] inline bool leads_to_block(Address to) {
  return to % 8 == 0 && page_holds(to, kFixedSize) && page_is_live(to - 4);
}

// The short way of the check, for the many blocks of a walk: whether the block is sound for certain, and has all
// fields, as the defaults make it. Of another nothing is known yet.
[[gnu::always_inline]] inline BoundedBlock if_sound(DoubtfulBlock block) REQUIRES(hook_mutex) {
  const BoundedBlock bounded = block.bounded_as(kFullLayout);
  const bool sound = bounded && leads_to_block(header::link(block.p(), kNextLink)) &&
                     leads_to_block(header::link(block.p(), kPrevLink)) && check_linked_block(bounded) == QR_FAULT_NONE;
  return __builtin_expect(sound, 1) ? bounded : BoundedBlock();
}

// The same as qr_check_block.
[[gnu::always_inline]] inline FaultCode check_on_walk(DoubtfulBlock block) REQUIRES(hook_mutex) {
  return if_sound(block) ? QR_FAULT_NONE : qr_check_block(block);
}

}  // namespace quarl
