// Reading and writing block headers. Two kinds of handle, which do not turn into each other by themselves:
//
//   DoubtfulBlock  a pointer that may be no block, or whose header a faulty program may have written. What it says is a
//                  claim.
//   SoundBlock     a block that was just made or checked, under the lock that is still held. What it says is so.
//
// Nothing but the functions here and in used_list.h touches the words of a header.
#pragma once

#include "platform/chunk.h"
#include "platform/libc_hooks.h"
#include "quarlheap/model/header_layout.h"
#include "state/hook_lock.h"

namespace quarl {

struct CallTrace;

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
  return {layout.trace_info ? field(p, layout.trace_info_offset()) : 0};
}
inline uint32_t offset(Address p) {
  const HeaderLayout has = layout(p);
  return has.header_offset(trace_info(p, has), least_alignment);
}

}  // namespace header

// Address of the trace_info word, by the block's flags.
inline Address trace_info_of(Address p) {
  return p - header::layout(p).trace_info_offset();
}

// What the optional fields of a header say, 0 where one is not there.
struct HeaderFields {
  uint32_t tid;
  uint32_t time;
  uint32_t seq_num;
  TraceInfo info;

  static HeaderFields read(Address p, const HeaderLayout& layout) {
    return {layout.tid ? header::field(p, layout.tid_offset()) : 0,
            layout.time ? header::field(p, layout.time_offset()) : 0,
            layout.time ? header::field(p, layout.seq_offset()) : 0, header::trace_info(p, layout)};
  }
};

// A block of the used list, whose header can be believed.
class SoundBlock {
 public:
  explicit SoundBlock(Address p) : p_(p) {}  // the caller vouches for it

  Address p() const { return p_; }
  uint32_t size() const { return header::word(p_, kUserSize); }
  HeaderLayout layout() const { return header::layout(p_); }
  HeaderFields fields() const { return HeaderFields::read(p_, layout()); }

  // The trace that it was allocated with.
  const uint32_t* trace_words() const {
    return static_cast<const uint32_t*>(pointer_to(trace_info_of(p_))) - fields().info.depth();
  }
  int trace_depth() const { return layout().trace ? static_cast<int>(fields().info.depth()) : 0; }

 private:
  Address p_;
};

// A pointer that is said to be a block. Reads the words below it, whatever they are.
class DoubtfulBlock {
 public:
  explicit DoubtfulBlock(Address p) : p_(p) {}

  Address p() const { return p_; }
  bool is_null() const { return p_ == 0; }
  bool is_freed() const { return header::word(p_, kSelfLink) == QR_FREED_MARK; }
  // A header whose first word is whole: not null, and named by it.
  bool names_itself() const { return p_ != 0 && (header::word(p_, kSelfLink) & ~kLinkFlags) == p_; }

  uint32_t claimed_size() const { return header::word(p_, kUserSize); }
  HeaderLayout claimed_layout() const { return header::layout(p_); }
  TraceInfo claimed_info() const { return header::trace_info(p_, claimed_layout()); }
  uint32_t claimed_offset() const { return header::offset(p_); }  // from the raw block to p
  ChunkWord claimed_chunk() const { return chunk_before(p_ - claimed_offset()); }

  friend bool operator==(DoubtfulBlock a, DoubtfulBlock b) { return a.p_ == b.p_; }

 private:
  Address p_;
};

inline bool qr_is_block(Address p) {
  return DoubtfulBlock(p).names_itself();
}

// Bytes from the raw block to p; 0 for what is no block.
inline uint32_t header_offset_of(Address p) {
  return qr_is_block(p) ? header::offset(p) : 0;
}

// Bytes that header and guard of a new block take before rounding; 0 without QUARL_MEM_HEAD.
inline uint32_t header_size(const Flags& flags, Operation op, int depth) {
  if (!flags.header()) return 0;
  const HeaderLayout layout = HeaderLayout::for_new(flags, op);
  return layout.lowest_offset(static_cast<uint32_t>(depth)) + layout.guard_size();
}

// From the raw block to the user pointer.
inline uint32_t offset_for(uint32_t lowest, uint32_t alignment) {
  return round_up(lowest, alignment > least_alignment ? alignment : least_alignment);
}

// Where a new block lies in its raw block.
struct Placement {
  uint32_t offset;  // raw block to user pointer
  uint32_t guard;   // bytes behind the user's
  uint32_t align_log2;

  uint32_t alignment() const { return 1U << align_log2; }
  uint32_t raw_size(uint32_t user_size) const { return offset + guard + user_size; }
};
inline Placement place_block(const Flags& flags, Operation op, int depth, uint32_t align_log2 = kPlainAlignLog2) {
  if (!flags.header()) return {0, 0, align_log2};
  const HeaderLayout layout = HeaderLayout::for_new(flags, op);
  const uint32_t lowest = layout.lowest_offset(static_cast<uint32_t>(depth));
  return {offset_for(lowest, 1U << align_log2), layout.guard_size(), align_log2};
}

// Writes the header below p and the guard behind the block; the links are empty.
void fill_header(Address p, const Flags& flags, uint32_t user_size, Operation op, const CallTrace& trace,
                 uint32_t align_log2) REQUIRES(hook_mutex);

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
