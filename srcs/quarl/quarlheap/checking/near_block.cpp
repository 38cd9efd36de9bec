// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/near_block.h"

#include "quarlheap/checking/block_check.h"
#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

constexpr uint32_t kFurthest = 64 << 10;  // bytes

// A size that cannot be is no more than the chunk has room for.
uint32_t believable_size(DoubtfulBlock block) REQUIRES(hook_mutex) {
  const BoundedBlock sound = if_sound(block);
  if (sound) return sound.size();
  const BoundedBlock bounded = block.names_itself() ? block.bounded() : BoundedBlock();
  if (!bounded) return 0;
  return bounded.size() < bounded.room() ? bounded.size() : bounded.room();
}

struct Place {
  BlockRelation relation;
  uint32_t gap;
};

Place place_of(Address at, Address p, uint32_t size) {
  if (at < p) return {BlockRelation::kBefore, p - at};
  if (at - p < size) return {BlockRelation::kInside, 0};
  return {BlockRelation::kBehind, at - p - size};
}

}  // namespace

void find_near_block(Address at, NearBlock* found) {
  DoubtfulBlock nearest(0);
  Place best{BlockRelation::kNone, kFurthest};
  for (BlockWalk walk; walk.here(); walk.step()) {
    const Place place = place_of(at, walk.block().p(), believable_size(walk.block()));
    if (place.gap >= best.gap) continue;
    best = place;
    nearest = walk.block();
  }
  found->relation = best.relation;
  if (!*found) return;
  found->gap = best.gap;
  found->p = nearest.p();
  found->distance = static_cast<int32_t>(at - nearest.p());
  know_live(nearest, &found->block);
}

}  // namespace quarl
