// SPDX-License-Identifier: Apache-2.0
// The used list: all live blocks, oldest first, linked through their headers. A link is followed where it can lead to a
// block, and written through where both ends name each other; what is damaged is mended from its other end when a block
// beside it goes.
#pragma once

#include "cache.h"
#include "quarlheap/model/block_header.h"

namespace quarl {

// 0 when the list is empty.
inline constexpr Address& heap_block_head GUARDED_BY(hook_mutex) = hot_words.heap_block_head;
inline constexpr Address& heap_block_tail GUARDED_BY(hook_mutex) = hot_words.heap_block_tail;
// Blocks that were linked and not unlinked.
inline constexpr uint32_t& heap_block_count GUARDED_BY(hook_mutex) = hot_words.heap_block_count;
inline constexpr bool& used_list_closed GUARDED_BY(hook_mutex) = hot_words.used_list_closed;

// The ends of the list when it was closed, for a debugger: the blocks are still there.
struct ClosedList {
  Address head, tail;
  uint32_t count;
};
extern ClosedList closed_list;

// At the end, once the hooks are gone: blocks go back to the allocator past the list from then on, and a link may lead
// into memory that is somebody else's. The list is empty, and hooks that other threads are still inside leave it so.
void close_used_list() REQUIRES(hook_mutex);

// The hook that was interrupted on this thread may have half linked a block, and will not go on: that the list breaks
// off there is no damage.
void expect_unfinished_list() REQUIRES(hook_mutex);

namespace header {

inline Address link(Address p, HeaderWord which) {
  return word(p, which) & ~kLinkFlags;
}
inline void set_link(Address p, HeaderWord which, Address target) {
  uint32_t& link = word(p, which);
  link = (link & kLinkFlags) | target;
}

// Whether the words that every header has are there at p, a link's target.
inline bool can_be_read(Address p) {
  return page_is_live(p - 4) && (__builtin_expect(page_holds(p, kFixedSize), 1) || page_is_live(p - kFixedSize));
}

// Whether it is a block that names itself. One that does is aligned as blocks are, or as good as one to whoever wrote
// there.
inline bool is_one(Address p) {
  return can_be_read(p) && (word(p, kSelfLink) ^ p) <= kLinkFlags;
}

// Whether it names its neighbour by this link, too.
inline bool names(Address p, HeaderWord which, Address neighbour) {
  return is_one(p) && (word(p, which) ^ neighbour) <= kLinkFlags;
}

}  // namespace header

// The same where an end of the list lies where no block can be, or the list is empty or closed.
[[gnu::cold, gnu::noinline]] void link_doubtfully(Address p, uint32_t prev_flags) REQUIRES(hook_mutex);

// Appends the block, and writes its links with the flags of its layout.
[[gnu::always_inline]] inline void link_block(const SoundBlock& block) REQUIRES(hook_mutex) {
  const Address p = block.p();
  enter_pages(p, block.chunk_word(), block.last_byte());
  ++heap_block_count;
  header::word(p, kSelfLink) = p | block.layout().self_flags();
  header::word(p, kNextLink) = block.layout().next_flags();
  const Address tail = heap_block_tail;
  if (__builtin_expect(!page_is_live(tail - 4) || heap_block_head == 0, 0))
    return link_doubtfully(p, block.layout().prev_flags());
  header::word(p, kPrevLink) = tail | block.layout().prev_flags();
  header::set_link(tail, kNextLink, p);
  heap_block_tail = p;
}

// The two words that name a block on the list, links of its neighbours or the ends of the list, and whom it names.
struct Ties {
  uint32_t* from_next = nullptr;
  uint32_t* from_prev = nullptr;
  Address next = 0;
  Address prev = 0;

  explicit operator bool() const { return from_prev != nullptr; }  // both are known, and name it
};

// The word of a neighbour, or the list's end where there is none, that names p; null when it does not.
[[gnu::always_inline]] inline uint32_t* tie_of(Address p, Address neighbour, HeaderWord back, uint32_t& end)
    REQUIRES(hook_mutex) {
  if (__builtin_expect(neighbour == 0, 0)) return (end ^ p) <= kLinkFlags ? &end : nullptr;
  if (__builtin_expect(!header::can_be_read(neighbour), 0)) return nullptr;
  uint32_t& named = header::word(neighbour, back);
  return __builtin_expect(((header::word(neighbour, kSelfLink) ^ neighbour) | (named ^ p)) <= kLinkFlags, 1) ? &named
                                                                                                             : nullptr;
}

// Of a block that can be one: its ties, when they hold.
[[gnu::always_inline]] inline Ties ties_of(Address p) REQUIRES(hook_mutex) {
  const Address next = header::link(p, kNextLink);
  const Address prev = header::link(p, kPrevLink);
  if (__builtin_expect(next == prev, 0) && next != 0) return {};
  uint32_t* from_next = tie_of(p, next, kPrevLink, heap_block_tail);
  if (__builtin_expect(from_next == nullptr, 0)) return {};
  uint32_t* from_prev = tie_of(p, prev, kNextLink, heap_block_head);
  return {from_next, from_prev, next, prev};
}

// Whether an end of the list names the block, or a neighbour that the block names.
[[gnu::cold, gnu::noinline]] bool is_tied(Address p) REQUIRES(hook_mutex);

// Whether the list knows the block, however damaged its links are: it is tied to it, or a walk from either end meets
// it.
[[gnu::cold, gnu::noinline]] bool is_listed(Address p) REQUIRES(hook_mutex);

// Whether a walk does not meet all blocks.
[[gnu::cold, gnu::noinline]] bool list_is_broken() REQUIRES(hook_mutex);

// Whether a link of the block leads to where no block can be. 0, the block itself and the head end a walk.
[[gnu::noinline]] bool has_wild_link(DoubtfulBlock block) REQUIRES(hook_mutex);

// Whether a link of a block that can be one is not answered by what it names, nor by the list's end. And what it should
// be, by who names the block from beyond; false when nobody does.
[[gnu::cold, gnu::noinline]] bool link_is_wrong(Address p, HeaderWord link) REQUIRES(hook_mutex);
[[gnu::cold, gnu::noinline]] bool find_right_link(Address p, HeaderWord link, uint32_t* word) REQUIRES(hook_mutex);

// Takes a block off the list whose links are damaged, and mends its neighbours' links as far as others tell of them.
[[gnu::cold, gnu::noinline]] void unlink_damaged(Address p) REQUIRES(hook_mutex);

// `ties` are the block's; where they do not hold, the list is mended as far as it goes.
[[gnu::always_inline]] inline void unlink_block(const SoundBlock& block, Ties ties) REQUIRES(hook_mutex) {
  const Address p = block.p();
  leave_pages(p, block.chunk_word(), block.last_byte());
  --heap_block_count;
  if (__builtin_expect(!ties, 0)) {
    unlink_damaged(p);
    return;
  }
  // Both name p; their flags stay.
  *ties.from_next += ties.prev - p;
  *ties.from_prev += ties.next - p;
}

// The end of a block: takes it off the list and marks its header.
[[gnu::always_inline]] inline void mark_released(const SoundBlock& block, Ties ties) REQUIRES(hook_mutex) {
  unlink_block(block, ties);
  mark_freed(block.p());
}

// Asks for the cache lines that the end of a block touches (its header, its guard, both neighbours), so that they come
// side by side instead of one after the other. The word before p is there; what p is does not matter.
[[gnu::always_inline]] inline void prefetch_block(Address p) {
  constexpr uint32_t kTypicalHeader = 72;
  prefetch(p - kTypicalHeader);
  if (__builtin_expect(!page_holds(p, kFixedSize), 0)) return;
  prefetch(header::word(p, kNextLink) - 12);  // the flags change no line
  prefetch(header::word(p, kPrevLink) - 12);
  prefetch(p + header::word(p, kUserSize));
}

// A walk along the list: for (BlockWalk walk; walk.here(); walk.step()) walk.block();
//
// Any block on it may be damaged; its link is followed all the same where it can lead to a block. A link that is 0 or
// points back to the block itself or to the list's head ends the walk, and so does one that leads nowhere, or to where
// the walk remembers to have been: it goes around a circle. It ends after as many steps as there are blocks at the
// latest. When it ends of itself and has not met as many, standard error is told, once for each place.
class BlockWalk {
 public:
  BlockWalk() REQUIRES(hook_mutex);
  bool here() const { return at_ != 0; }
  DoubtfulBlock block() const { return DoubtfulBlock(at_); }
  [[gnu::always_inline]] void step() REQUIRES(hook_mutex) {
    const Address next = header::link(at_, kNextLink);
    if (__builtin_expect(!goes_on_at(next), 0)) return step_doubtfully(next);
    ++met_;
    at_ = next;
  }
  // Of a walk that has ended: whether blocks are out of reach.
  bool broke_off() const REQUIRES(hook_mutex) { return met_ < heap_block_count; }
  // The same: whether it met all blocks, each named by the one before and by the one behind it, from end to end. Their
  // links name nothing else then.
  bool met_whole_list() const REQUIRES(hook_mutex) { return whole_ && turns_ == 0 && !broke_off(); }

 private:
  // A link that its target does not answer. Two blocks name the one at which a circle is entered, so one of those links
  // is such a turn.
  struct Turn {
    Address from;
    Address to;
    uint32_t met;
  };
  bool closes_circle(Address next) REQUIRES(hook_mutex);
  [[gnu::cold, gnu::noinline]] void step_doubtfully(Address next) REQUIRES(hook_mutex);

  // Whether it is the next block for certain: it names this one, as all before it did.
  [[gnu::always_inline]] bool goes_on_at(Address next) const REQUIRES(hook_mutex) {
    return next % 8 == 0 && header::names(next, kPrevLink, at_) && next != at_ && next != heap_block_head &&
           turns_ == 0 && met_ < heap_block_count;
  }

  Address at_;
  uint32_t met_ = 1;
  uint32_t turns_ = 0;
  bool whole_ = false;  // it ended at the list's end
  Turn last_{};         // is met again on a circle with no other
  Turn marked_{};       // at each power of two of turns: is met again on any other circle
};

}  // namespace quarl
