// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/used_list.h"

#include "platform/print.h"

namespace quarl {

constinit ClosedList closed_list{};

void close_used_list() {
  if (!used_list_closed) closed_list = {heap_block_head, heap_block_tail, heap_block_count};
  used_list_closed = true;
  heap_block_head = heap_block_tail = 0;
  heap_block_count = 0;
}

namespace {

constinit Address told_at GUARDED_BY(hook_mutex) = 0;  // where the list broke off when that was told last
constinit bool unfinished GUARDED_BY(hook_mutex) = false;

void tell_broken_off(Address at, uint32_t met) REQUIRES(hook_mutex) {
  if (told_at == at || unfinished) return;
  told_at = at;
  print_failure(kStderr, {"list"},
                "quarl: the list of live blocks breaks off at 0x%lx: %u of %u blocks are out of reach\n",
                static_cast<unsigned long>(at), heap_block_count - met, heap_block_count);
}

bool is_block(Address p) {
  const DoubtfulBlock block(p);
  return block.can_be_block() && block.names_itself();
}

// From one end along `along` to the last block that can be reached, or to the one whose link names p.
Address last_before(Address end, HeaderWord along, Address p) REQUIRES(hook_mutex) {
  Address at = end;
  for (uint32_t steps = 0; steps < heap_block_count && is_block(at); ++steps) {
    const Address next = header::link(at, along);
    if (next == p || !is_block(next)) return at;
    at = next;
  }
  return at;
}

// The block whose link `back` names p, searched from the end that lies beyond it; 0 when none is found.
Address find_naming(Address far_end, HeaderWord back, Address p) REQUIRES(hook_mutex) {
  const Address last = last_before(far_end, back, p);
  return header::names(last, back, p) ? last : 0;
}

struct Neighbour {
  Address at;     // 0: none is known
  bool writable;  // it is proven to be the neighbour
};

// Of a block that names itself: whether the one it names by its link names it, too.
bool belongs_elsewhere(Address p, HeaderWord link, HeaderWord back, Address end) {
  const Address other = header::link(p, link);
  return other == 0 ? end == p : header::names(other, back, p);
}

// The neighbour of p on one side: the one that names p, else the one that p names and that nobody else has for a
// neighbour. A block with a broken header keeps its place on the list, but nothing is written there.
Neighbour find_neighbour(Address p, HeaderWord forth, HeaderWord back, Address near_end, Address far_end)
    REQUIRES(hook_mutex) {
  const Address said = header::link(p, forth);
  if (header::names(said, back, p)) return {said, true};
  if (far_end == p) return {0, false};
  const Address found = find_naming(far_end, back, p);
  if (found != 0) return {found, true};
  if (said == p || !DoubtfulBlock(said).can_be_block()) return {0, false};
  if (!DoubtfulBlock(said).names_itself()) return {said, false};
  if (belongs_elsewhere(said, back, forth, near_end)) return {0, false};
  return {said, true};
}

}  // namespace

void expect_unfinished_list() {
  unfinished = true;
}

bool is_tied(Address p) {
  if (used_list_closed || heap_block_head == p || heap_block_tail == p) return true;
  return DoubtfulBlock(p).can_be_block() && (header::names(header::link(p, kNextLink), kPrevLink, p) ||
                                             header::names(header::link(p, kPrevLink), kNextLink, p));
}

bool is_listed(Address p) {
  if (is_tied(p)) return true;
  return find_naming(heap_block_head, kNextLink, p) != 0 || find_naming(heap_block_tail, kPrevLink, p) != 0;
}

bool list_is_broken() {
  BlockWalk walk;
  while (walk.here()) walk.step();
  return walk.broke_off();
}

bool has_wild_link(DoubtfulBlock block) {
  const auto wild = [block](Address to) REQUIRES(hook_mutex) {
    return to != 0 && to != block.p() && to != heap_block_head && !DoubtfulBlock(to).can_be_block();
  };
  return wild(header::link(block.p(), kNextLink)) || wild(header::link(block.p(), kPrevLink));
}

bool link_is_wrong(Address p, HeaderWord link) {
  const HeaderWord back = link == kNextLink ? kPrevLink : kNextLink;
  return !belongs_elsewhere(p, link, back, link == kNextLink ? heap_block_tail : heap_block_head);
}

bool find_right_link(Address p, HeaderWord link, uint32_t* word) {
  const bool forth = link == kNextLink;
  const Address end = forth ? heap_block_tail : heap_block_head;
  const Address named = end == p ? 0 : find_naming(end, forth ? kPrevLink : kNextLink, p);
  if (named == 0 && end != p) return false;
  const HeaderLayout layout = HeaderLayout::configured(Flags());
  *word = named | (forth ? layout.next_flags() : layout.prev_flags());
  return true;
}

namespace {

// The list's end lies where no block can be: makes the last block that walks reach the end, for p to follow. A link
// that was left behind may name p, whose memory is another's again.
void replace_lost_tail(Address p) REQUIRES(hook_mutex) {
  if (heap_block_head == 0 && heap_block_tail == 0) return;
  const Address reached = last_before(heap_block_head, kNextLink, p);
  heap_block_tail = is_block(reached) && reached != p ? reached : 0;
}

}  // namespace

void link_doubtfully(Address p, uint32_t prev_flags) {
  if (!page_is_live(heap_block_tail - 4)) replace_lost_tail(p);
  const Address tail = heap_block_tail;
  header::word(p, kPrevLink) = tail | prev_flags;
  if (used_list_closed) return;
  if (tail != 0) header::set_link(tail, kNextLink, p);
  heap_block_tail = p;
  if (heap_block_head == 0) heap_block_head = p;
}

void unlink_damaged(Address p) {
  if (used_list_closed) return;
  const Neighbour next = find_neighbour(p, kNextLink, kPrevLink, heap_block_head, heap_block_tail);
  const Neighbour prev = find_neighbour(p, kPrevLink, kNextLink, heap_block_tail, heap_block_head);
  if (next.writable) header::set_link(next.at, kPrevLink, prev.at);
  if (prev.writable) header::set_link(prev.at, kNextLink, next.at);
  if (heap_block_head == p) heap_block_head = next.at;
  if (heap_block_tail != p) return;
  heap_block_tail = prev.writable ? prev.at : 0;
  // New blocks are linked behind one that walks reach.
  const Address reached = last_before(heap_block_head, kNextLink, p);
  if (heap_block_tail == 0 && is_block(reached)) heap_block_tail = reached;
}

BlockWalk::BlockWalk() : at_(heap_block_head) {
  if (at_ != 0 && DoubtfulBlock(at_).can_be_block()) return;
  if (heap_block_count > 0) tell_broken_off(at_, 0);
  at_ = met_ = 0;
}

// Blocks that the lap met a second time do not count again.
bool BlockWalk::closes_circle(Address next) {
  for (const Turn& turn : {last_, marked_}) {
    if (next != turn.to) continue;
    if (at_ == turn.from) met_ = turn.met;
    return true;
  }
  if (header::names(next, kPrevLink, at_)) return false;
  last_ = {at_, next, met_};
  ++turns_;
  if ((turns_ & (turns_ - 1)) == 0) marked_ = last_;
  return false;
}

void BlockWalk::step_doubtfully(Address next) {
  const bool ends = next == 0 || next == at_ || next == heap_block_head || closes_circle(next);
  if (!ends && met_ < heap_block_count && DoubtfulBlock(next).can_be_block()) {
    ++met_;
    at_ = next;
    return;
  }
  if (!ends && met_ == heap_block_count) {  // the link should end here, and leads along a circle or nowhere
    if (turns_ > 0) {
      at_ = last_.from;
      met_ = last_.met;
    }
    if (!broke_off()) --met_;
  }
  whole_ = next == 0 && at_ == heap_block_tail && header::link(heap_block_head, kPrevLink) == 0;
  if (broke_off()) {
    tell_broken_off(at_, met_);
  } else {
    told_at = 0;
  }
  at_ = 0;
}

}  // namespace quarl
