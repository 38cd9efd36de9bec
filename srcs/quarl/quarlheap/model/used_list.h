// The used list: all live blocks, oldest first, linked through their headers.
#pragma once

#include "cache.h"
#include "quarlheap/model/block.h"

namespace quarl {

extern Address heap_block_head GUARDED_BY(hook_mutex);  // 0 when the list is empty
extern Address heap_block_tail GUARDED_BY(hook_mutex);

inline void link_block(Address p) REQUIRES(hook_mutex) {
  set_link(p, kSelfLink, p);
  set_link(p, kPrevLink, heap_block_tail);
  set_link(p, kNextLink, 0);
  if (heap_block_tail != 0) set_link(heap_block_tail, kNextLink, p);
  heap_block_tail = p;
  if (heap_block_head == 0) heap_block_head = p;
}

inline void unlink_block(Address p) REQUIRES(hook_mutex) {
  const Address next = link_of(p, kNextLink);
  const Address prev = link_of(p, kPrevLink);
  if (next != 0) set_link(next, kPrevLink, prev);
  if (prev != 0) set_link(prev, kNextLink, next);
  if (heap_block_head == p) {
    if (heap_block_tail == p) heap_block_tail = 0;
    heap_block_head = next;
  } else if (heap_block_tail == p) {
    heap_block_tail = prev;
  }
}

// The end of a block: takes it off the list and marks its header, by which a second release is known for as long as the
// allocator leaves the word alone.
inline void mark_released(Address p) REQUIRES(hook_mutex) {
  unlink_block(p);
  header_word(p, kSelfLink) = QR_FREED_MARK;
}

// Asks for the cache lines that the end of a block touches (its header, its guard, both neighbours), so that they come
// side by side instead of one after the other. Of a pointer that is no block nothing but the word before it is read.
[[gnu::always_inline]] inline void prefetch_block(Address p) {
  constexpr uint32_t kTypicalHeader = 72;
  prefetch(p - kTypicalHeader);
  if (!qr_is_block(p)) return;
  prefetch(link_of(p, kNextLink) - 12);
  prefetch(link_of(p, kPrevLink) - 12);
  prefetch(p + user_size_of(p));
}

// The block behind p on a walk, 0 at its end. A damaged link that points back to the block itself or to the list's
// head ends the walk too.
inline Address next_on_walk(Address p) REQUIRES(hook_mutex) {
  const Address next = link_of(p, kNextLink);
  return next == p || next == heap_block_head ? 0 : next;
}

}  // namespace quarl
