// SPDX-License-Identifier: Apache-2.0
// The making of a header: where it lies in the raw block, and what it says.
#pragma once

#include <string.h>

#include "platform/thread_cache.h"
#include "quarlheap/model/block_header.h"
#include "quarlheap/model/call_trace.h"
#include "state/clock.h"

namespace quarl {

// Bytes that header and guard of a new block take before rounding; 0 without QUARL_MEM_HEAD.
inline uint32_t header_size(const Flags& flags, Operation op, int depth) {
  if (!flags.header()) return 0;
  const HeaderLayout layout = HeaderLayout::for_new(flags, op);
  return layout.lowest_offset(static_cast<uint32_t>(depth)) + layout.guard_size();
}

// From the raw block to the user pointer.
inline uint32_t offset_for(uint32_t lowest, uint32_t alignment) {
  return user_offset(lowest, alignment, least_alignment);
}

// Where a new block lies in its raw block, and what that follows from. The compiler may know all of it.
struct Placement {
  uint32_t offset;  // raw block to user pointer
  uint32_t guard;   // bytes behind the user's
  uint32_t align_log2;
  uint32_t depth;  // entries of the trace

  uint32_t alignment() const { return 1U << align_log2; }
  uint32_t raw_size(uint32_t user_size) const { return offset + guard + user_size; }
};
inline Placement place_block(const Flags& flags, Operation op, int trace_depth, uint32_t align_log2 = kPlainAlignLog2) {
  const auto depth = static_cast<uint32_t>(trace_depth);  // 0 without a trace
  if (!flags.header()) return {0, 0, align_log2, depth};
  const HeaderLayout layout = HeaderLayout::for_new(flags, op);
  const uint32_t lowest = layout.lowest_offset(depth);
  // Known to the compiler: nothing to be rounded up.
  const bool exact = align_log2 == kPlainAlignLog2 && lowest % kMostAlignment == 0;
  if (__builtin_constant_p(exact) && exact) return {lowest, layout.guard_size(), align_log2, depth};
  return {offset_for(lowest, 1U << align_log2), layout.guard_size(), align_log2, depth};
}

// Writes the header below p and the guard behind the block, but for the links and the number: nobody knows of the block
// until it has those, so no lock is needed.
[[gnu::always_inline]] inline void fill_header(Address p, HeaderLayout layout, uint32_t user_size, Operation op,
                                               const Placement& place, const CallTrace& trace,
                                               int tid = current_tid()) {
  header::word(p, kUserSize) = user_size;
  // Bytes, not a word: nothing says that the end of the user's bytes is aligned.
  if (layout.guard()) memcpy(pointer_to(p + user_size), kTailGuard, sizeof kTailGuard);
  if (layout.tid()) header::field(p, layout.tid_offset()) = static_cast<uint32_t>(tid);
  if (layout.time()) header::field(p, layout.time_offset()) = static_cast<uint32_t>(clock_sec);
  if (!layout.trace_info()) return;
  header::field(p, layout.trace_info_offset()) = TraceInfo::make(place.depth, op, place.align_log2).word;
  void* lowest = __builtin_assume_aligned(pointer_to(p - layout.trace_offset(place.depth)), 4);
  if (__builtin_expect(place.depth == kDefaultDepth, 1)) {  // as a few words, without a call
    memcpy(lowest, trace.words, 4 * kDefaultDepth);
  } else {
    memcpy(lowest, trace.words, 4 * place.depth);
  }
}

// The next number, when the header has one.
inline void number_header(Address p, HeaderLayout layout) REQUIRES(hook_mutex) {
  if (layout.time()) header::field(p, layout.seq_offset()) = ++last_seq_num;
}

}  // namespace quarl
