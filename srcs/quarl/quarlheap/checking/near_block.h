// The live block that an address lies in or next to.
#pragma once

#include "quarlheap/model/block_header.h"
#include "state/hook_lock.h"

namespace quarl {

enum class BlockRelation : uint8_t { kNone, kInside, kBehind, kBefore };

struct NearBlock {
  BlockRelation relation = BlockRelation::kNone;
  uint32_t gap = 0;      // bytes between the address and the block
  int32_t distance = 0;  // from its first byte, negative before it
  OpRecord row;          // what its header tells

  explicit operator bool() const { return relation != BlockRelation::kNone; }
};

// The nearest one, not further than 64 KiB from the address: an overrun of a large block may pass what is mapped behind
// it. Walks the whole list.
void find_near_block(Address at, NearBlock* found) REQUIRES(hook_mutex);

}  // namespace quarl
