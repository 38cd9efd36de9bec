// The used list: all live blocks, oldest first, linked through their headers.
#pragma once

#include "quarlheap/model/block.h"

namespace quarl {

extern Address heap_block_head GUARDED_BY(hook_mutex);  // 0 when the list is empty
extern Address heap_block_tail GUARDED_BY(hook_mutex);

void link_block(Address p) REQUIRES(hook_mutex);
void unlink_block(Address p) REQUIRES(hook_mutex);

// The end of a block: takes it off the list and marks its header, by which a second release is known for as long as the
// allocator leaves the word alone.
void mark_released(Address p) REQUIRES(hook_mutex);

// The block behind p on a walk, 0 at its end. A damaged link that points back to the block itself or to the list's
// head ends the walk too.
inline Address next_on_walk(Address p) REQUIRES(hook_mutex) {
  const Address next = link_of(p, kNextLink);
  return next == p || next == heap_block_head ? 0 : next;
}

}  // namespace quarl
