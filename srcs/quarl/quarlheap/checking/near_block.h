// SPDX-License-Identifier: Apache-2.0
// The live block that an address lies in or next to.
#pragma once

#include "quarlheap/checking/known_block.h"

namespace quarl {

enum class BlockRelation : uint8_t { kNone, kInside, kBehind, kBefore };

struct NearBlock {
  BlockRelation relation = BlockRelation::kNone;
  Address p = 0;         // the block
  uint32_t gap = 0;      // bytes between the address and the block; of one without a known size its first byte
  int32_t distance = 0;  // from its first byte, negative before it
  KnownBlock block;

  explicit operator bool() const { return relation != BlockRelation::kNone; }
};

// The nearest one, not further than 64 KiB from the address: an overrun of a large block may pass what is mapped behind
// it. Walks the whole list.
void find_near_block(Address at, NearBlock* found) REQUIRES(hook_mutex);

}  // namespace quarl
