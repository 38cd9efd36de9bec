// SPDX-License-Identifier: Apache-2.0
// Reading block headers; new_header.h makes them. Three kinds of handle, which do not turn into each other by
// themselves:
//
//   DoubtfulBlock  a pointer that may be no block, or whose header a faulty program may have written. It tells what the
//                  word before the pointer says, and lends nothing else that could be followed.
//   BoundedBlock   the same after its claims were bounded: the fields and the chunk word lie in memory that is there.
//                  What they say may still be wrong.
//   SoundBlock     a block that was just made or checked, under the lock that is still held. What it says is so.
//
// Nothing but the functions here, there and in used_list.h touches the words of a header.
#pragma once

#include "platform/chunk.h"
#include "platform/libc_hooks.h"
#include "quarlheap/model/header_layout.h"
#include "quarlheap/model/live_pages.h"
#include "state/hook_lock.h"

namespace quarl {

namespace header {

inline uint32_t& word(Address p, HeaderWord which) {
  return word_at(p + static_cast<uint32_t>(4 * which));
}
inline uint32_t& field(Address p, uint32_t offset) {
  return word_at(p - offset);
}
inline HeaderLayout layout(Address p) {
  return HeaderLayout::of_words(word(p, kSelfLink), word(p, kNextLink), word(p, kPrevLink));
}
inline TraceInfo trace_info(Address p, const HeaderLayout& layout) {
  return {layout.trace_info() ? field(p, layout.trace_info_offset()) : 0};
}
// Whether the links of a block at p have the flags of this layout, and the first of them names it.
inline bool is_of_layout(Address p, const HeaderLayout& layout) {
  const uint32_t others = (word(p, kNextLink) ^ layout.next_flags()) | (word(p, kPrevLink) ^ layout.prev_flags());
  return word(p, kSelfLink) == p + layout.self_flags() && (others & kLinkFlags) == 0;
}
// The last byte of a block whose page is counted: the guard's. Without one the check does not notice a size that is off
// by a little, which would name another page when the block goes.
inline Address last_byte(Address p, uint32_t size, uint32_t guard) {
  return guard != 0 ? p + size + guard - 1 : p - 1;
}

}  // namespace header

// Whether the raw block of an ordinary chunk can lie there.
inline bool raw_is_aligned(Address raw) {
  return (raw & (raw_alignment - 1)) == 0;
}

// What the optional fields of a header say, 0 where one is not there.
struct HeaderFields {
  uint32_t tid;
  uint32_t time;
  uint32_t seq_num;
  TraceInfo info;

  // `end` is the end of the header, or of a copy of it.
  static HeaderFields read(const uint32_t* end, const HeaderLayout& layout) {
    const auto field = [end](bool there, uint32_t offset) { return there ? *(end - offset / 4) : 0; };
    return {field(layout.tid(), layout.tid_offset()),
            field(layout.time(), layout.time_offset()),
            field(layout.time(), layout.seq_offset()),
            {field(layout.trace_info(), layout.trace_info_offset())}};
  }
};

// A block whose header can be believed.
class SoundBlock {
 public:
  // The caller vouches for it; `offset` is the way from the raw block to p.
  SoundBlock(Address p, uint32_t offset, HeaderLayout layout, uint32_t size)
      : p_(p), offset_(offset), layout_(layout), size_(size) {}
  SoundBlock(Address p, uint32_t offset) : SoundBlock(p, offset, header::layout(p), header::word(p, kUserSize)) {}

  Address p() const { return p_; }
  Address raw() const { return p_ - offset_; }
  Address chunk_word() const { return raw() - 4; }
  Address last_byte() const { return header::last_byte(p_, size_, layout_.guard_size()); }  // that the checker reads
  uint32_t offset() const { return offset_; }
  uint32_t size() const { return size_; }
  const HeaderLayout& layout() const { return layout_; }
  HeaderFields fields() const { return HeaderFields::read(words(), layout()); }

  // The trace that it was allocated with.
  const uint32_t* trace_words() const { return words() - layout().trace_info_offset() / 4 - fields().info.depth(); }
  int trace_depth() const { return layout().trace() ? static_cast<int>(fields().info.depth()) : 0; }

 private:
  const uint32_t* words() const { return static_cast<const uint32_t*>(pointer_to(p_)); }

  Address p_;
  uint32_t offset_;
  HeaderLayout layout_;
  uint32_t size_;
};

// A block whose fields and chunk word can be read. Only DoubtfulBlock::bounded makes one that is.
class BoundedBlock {
 public:
  BoundedBlock() : p_(0), offset_(0) {}
  explicit operator bool() const { return offset_ != 0; }  // the others need it to be so

  Address p() const { return p_; }
  uint32_t offset() const { return offset_; }  // from the raw block to p
  const HeaderLayout& layout() const { return layout_; }
  TraceInfo info() const { return header::trace_info(p_, layout_); }
  uint32_t size() const { return header::word(p_, kUserSize); }
  ChunkWord chunk() const { return chunk_before(p_ - offset_); }
  bool raw_is_aligned() const { return quarl::raw_is_aligned(p_ - offset_); }

  // Whether the block's end, its guard where it has one, lies in memory that is there.
  bool end_exists() const {
    const uint32_t guard = layout_.guard_size();
    const Address last = p_ + size() + guard - 1;
    if (__builtin_expect(on_one_page(p_ - offset_ - 4, last), 1)) return true;
    return guard != 0 ? page_is_live(last) && page_is_live(last - 3) : memory_exists(last);
  }

  // Bytes from p to the end of its chunk: the size may be off by as much as the check tolerates.
  uint32_t room() const { return raw_room(p_ - offset_) - offset_; }

 private:
  friend class DoubtfulBlock;
  BoundedBlock(Address p, uint32_t offset, const HeaderLayout& layout) : p_(p), offset_(offset), layout_(layout) {}

  Address p_;
  uint32_t offset_;
  HeaderLayout layout_;
};

// Whether a pointer lies as those of most blocks do: on a page with live blocks, on which a usual header and its chunk
// word lie as well.
[[gnu::always_inline]] inline bool lies_as_usual(Address p) {
  if (p % 8 != 0 || !page_holds(p, kUsualReach) || !page_is_live(p - 4)) return false;
  // What follows from the test, for the compiler, which asks for it elsewhere.
  if (!page_holds(p, kLongestFields) || !page_holds(p, kFixedSize)) __builtin_unreachable();
  return true;
}

// A pointer that is said to be a block.
class DoubtfulBlock {
 public:
  explicit DoubtfulBlock(Address p) : p_(p) {}

  Address p() const { return p_; }
  bool is_null() const { return p_ == 0; }
  bool is_freed() const { return header::word(p_, kSelfLink) == QR_FREED_MARK; }
  // A header whose first word is whole: not null, and named by it.
  bool names_itself() const { return p_ != 0 && (header::word(p_, kSelfLink) & ~kLinkFlags) == p_; }

  // Whether a header can be here: where a live one is, and aligned. All words that every header has are there then.
  bool can_be_block() const {
    if (__builtin_expect(p_ % 8 != 0 || !page_is_live(p_ - 4), 0)) return false;
    return on_one_page(p_ - 4, p_ - kFixedSize) || page_is_live(p_ - kFixedSize);
  }

  // Of one that can be a block. The size is a number to tell, not a way to follow.
  uint32_t claimed_size() const { return header::word(p_, kUserSize); }
  HeaderLayout claimed_layout() const { return header::layout(p_); }

  // What it claims, when that can be: false when the header is damaged for certain.
  BoundedBlock bounded() const {
    if (!all_fields_can_be_read()) return {};
    const HeaderLayout layout = header::layout(p_);
    return {p_, bounded_offset(layout, kFieldsSize[layout.fields]), layout};
  }
  // By the fields that it ought to have, whatever its flags say.
  BoundedBlock bounded_by(HeaderLayout layout) const {
    if (!can_be_block() || !page_is_live(p_ - kLongestFields)) return {};
    return {p_, bounded_offset(layout, kFieldsSize[layout.fields]), layout};
  }
  // The same of a block that has this layout; false, too, when it has another or does not name itself.
  [[gnu::always_inline]] BoundedBlock bounded_as(HeaderLayout layout) const {
    const bool has_it = all_fields_can_be_read() && header::is_of_layout(p_, layout);
    if (__builtin_expect(!has_it, 0)) return {p_, 0, layout};
    const bool usual = layout.fields == kFullLayout.fields && has_usual_offset();
    return {p_, __builtin_expect(usual, 1) ? kUsualOffset : bounded_offset(layout, layout.lowest_offset(0)), layout};
  }

  friend bool operator==(DoubtfulBlock a, DoubtfulBlock b) { return a.p_ == b.p_; }

 private:
  [[gnu::always_inline]] bool all_fields_can_be_read() const {
    if (__builtin_expect(p_ % 8 != 0 || !page_is_live(p_ - 4), 0)) return false;
    return __builtin_expect(page_holds(p_, kLongestFields), 1) || fields_exist(*this);
  }

  // Of one with all fields: all of a usual header and its chunk word lie on the page of the links.
  bool has_usual_offset() const {
    return page_holds(p_, kUsualReach) && TraceInfo{header::field(p_, kFullLayout.trace_info_offset())}.is_usual();
  }

  // The way from the raw block by a header of these fields, which can be read; 0 when it cannot be. `lowest` is their
  // lowest_offset(0).
  [[gnu::always_inline]] uint32_t bounded_offset(HeaderLayout layout, uint32_t lowest) const {
    uint32_t alignment = least_alignment;
    if (__builtin_expect(layout.trace_info(), 1)) {
      const TraceInfo info{header::field(p_, lowest)};
      if (info.depth() > kMaxTrace) return 0;
      if (layout.trace()) lowest += 4 * info.depth();
      if (__builtin_expect(info.align_log2() != kPlainAlignLog2, 0) && !align_can_be(p_, info, &alignment)) return 0;
    }
    const uint32_t offset = round_up(lowest, alignment);
    return page_is_live(p_ - offset - 4) ? offset : 0;
  }

  // The last step of the way down is judged by the flags, which have to be there for it.
  [[gnu::noinline]] static bool fields_exist(DoubtfulBlock block) {
    return block.can_be_block() && page_is_live(block.p_ - block.claimed_layout().lowest_offset(0));
  }

  // A block lies at its alignment. Sets what the header of one with another than the plain is rounded to.
  static bool align_can_be(Address p, TraceInfo info, uint32_t* alignment) {
    const uint32_t log2 = info.align_log2();
    if (log2 == 0) return true;
    if (log2 < kPlainAlignLog2 || log2 >= 32 || (p & ((1U << log2) - 1)) != 0) return false;
    if (1U << log2 > *alignment) *alignment = 1U << log2;
    return true;
  }

  Address p_;
};

inline bool qr_is_block(Address p) {
  return DoubtfulBlock(p).names_itself();
}

// Marks the header of a block that is off the list, by which a second release is known for as long as the allocator
// leaves the word alone.
inline void mark_freed(Address p) {
  header::word(p, kSelfLink) = QR_FREED_MARK;
}

// The pointer is no block any more, and was not released through the hooks.
inline void forget_header(Address p) {
  header::word(p, kSelfLink) = 0;
}

}  // namespace quarl
