#include "quarlheap/model/used_list.h"

namespace quarl {

constinit Address heap_block_head = 0;
constinit Address heap_block_tail = 0;

void link_block(Address p) {
  set_link(p, kSelfLink, p);
  set_link(p, kPrevLink, heap_block_tail);
  set_link(p, kNextLink, 0);
  if (heap_block_tail != 0) set_link(heap_block_tail, kNextLink, p);
  heap_block_tail = p;
  if (heap_block_head == 0) heap_block_head = p;
}

void unlink_block(Address p) {
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

void mark_released(Address p) {
  unlink_block(p);
  header_word(p, kSelfLink) = QR_FREED_MARK;
}

}  // namespace quarl
