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

// Asks for the cache lines that the end of a block touches (its header, its guard, both neighbours), so that they come
// side by side instead of one after the other. Of a pointer that is no block nothing but the word before it is read.
[[gnu::always_inline]] inline void prefetch_block(Address p) {
  constexpr uint32_t kTypicalHeader = 72;
  const auto fetch = [](Address at) { __builtin_prefetch(reinterpret_cast<const void*>(at), 1); };
  fetch(p - kTypicalHeader);
  if (!qr_is_block(p)) return;
  fetch(link_of(p, kNextLink) - 12);
  fetch(link_of(p, kPrevLink) - 12);
  fetch(p + user_size_of(p));
}

// The block behind p on a walk, 0 at its end. A damaged link that points back to the block itself or to the list's
// head ends the walk too.
inline Address next_on_walk(Address p) REQUIRES(hook_mutex) {
  const Address next = link_of(p, kNextLink);
  return next == p || next == heap_block_head ? 0 : next;
}

}  // namespace quarl
