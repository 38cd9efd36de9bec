// The used list: all live blocks, oldest first, linked through their headers.
#pragma once

#include "cache.h"
#include "quarlheap/model/block_header.h"

namespace quarl {

extern Address heap_block_head GUARDED_BY(hook_mutex);  // 0 when the list is empty
extern Address heap_block_tail GUARDED_BY(hook_mutex);
extern bool used_list_closed GUARDED_BY(hook_mutex);

// At the end, once the hooks are gone: blocks go back to the allocator past the list from then on, and a link may lead
// into memory that is somebody else's. The list is empty, and hooks that other threads are still inside leave it so.
void close_used_list() REQUIRES(hook_mutex);

namespace header {

inline Address link(Address p, HeaderWord which) {
  return word(p, which) & ~kLinkFlags;
}
inline void set_link(Address p, HeaderWord which, Address target) {
  uint32_t& link = word(p, which);
  link = (link & kLinkFlags) | target;
}

}  // namespace header

// Appends the block; its links were empty, and their flags stay.
inline void link_block(SoundBlock block) REQUIRES(hook_mutex) {
  const Address p = block.p();
  header::set_link(p, kSelfLink, p);
  if (__builtin_expect(used_list_closed, 0)) return;
  header::set_link(p, kPrevLink, heap_block_tail);
  header::set_link(p, kNextLink, 0);
  if (heap_block_tail != 0) header::set_link(heap_block_tail, kNextLink, p);
  heap_block_tail = p;
  if (heap_block_head == 0) heap_block_head = p;
}

inline void unlink_block(SoundBlock block) REQUIRES(hook_mutex) {
  if (__builtin_expect(used_list_closed, 0)) return;
  const Address p = block.p();
  const Address next = header::link(p, kNextLink);
  const Address prev = header::link(p, kPrevLink);
  if (next != 0) header::set_link(next, kPrevLink, prev);
  if (prev != 0) header::set_link(prev, kNextLink, next);
  if (heap_block_head == p) {
    if (heap_block_tail == p) heap_block_tail = 0;
    heap_block_head = next;
  } else if (heap_block_tail == p) {
    heap_block_tail = prev;
  }
}

// The end of a block: takes it off the list and marks its header.
inline void mark_released(SoundBlock block) REQUIRES(hook_mutex) {
  unlink_block(block);
  mark_freed(block.p());
}

// Asks for the cache lines that the end of a block touches (its header, its guard, both neighbours), so that they come
// side by side instead of one after the other. Of a pointer that is no block nothing but the word before it is read.
[[gnu::always_inline]] inline void prefetch_block(Address p) {
  constexpr uint32_t kTypicalHeader = 72;
  prefetch(p - kTypicalHeader);
  if (!qr_is_block(p)) return;
  prefetch(header::link(p, kNextLink) - 12);
  prefetch(header::link(p, kPrevLink) - 12);
  prefetch(p + DoubtfulBlock(p).claimed_size());
}

// A walk along the list. Any block on it may be damaged; its link is followed all the same. A link that points back to
// the block itself or to the list's head ends the walk.
//   for (DoubtfulBlock block = first_on_walk(); !block.is_null(); block = next_on_walk(block))
inline DoubtfulBlock first_on_walk() REQUIRES(hook_mutex) {
  return DoubtfulBlock(heap_block_head);
}
inline DoubtfulBlock next_on_walk(DoubtfulBlock block) REQUIRES(hook_mutex) {
  const Address next = header::link(block.p(), kNextLink);
  return DoubtfulBlock(next == block.p() || next == heap_block_head ? 0 : next);
}

}  // namespace quarl
