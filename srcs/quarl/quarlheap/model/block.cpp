#include "quarlheap/model/block.h"

#include <string.h>

#include "platform/thread_cache.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

constinit uint32_t last_seq_num = 0;

namespace {

bool op_has_trace_info(Operation op) {
  return op == kOpRealloc || op == kOpMemalign;
}

// Bytes, not a word: nothing says that the end of the user's bytes is aligned.
void write_guard(Address at) {
  memcpy(reinterpret_cast<void*>(at), kTailGuard, sizeof kTailGuard);
}

}  // namespace

uint32_t header_offset_of(Address p) {
  if (!qr_is_block(p)) return 0;
  const Layout layout = Layout::of_block(p);
  uint32_t offset = layout.trace_info_offset() - (layout.trace_info ? 0 : 4);
  uint32_t align_log2 = 0;
  if (layout.trace_info) {
    const TraceInfo info = read_trace_info(p);
    if (layout.trace) offset += 4 * info.depth();
    align_log2 = info.align_log2();
  }
  return round_up(offset, align_log2 != 0 ? 1U << (align_log2 & 31) : 8);
}

uint32_t header_size(const Flags& flags, Operation op, int depth) {
  if (!flags.header()) return 0;
  uint32_t size = 16;
  if (flags.in_header(kHeadTid)) size += 4;
  if (flags.in_header(kHeadTime)) size += 8;
  if (depth >= 1) size += 4 * static_cast<uint32_t>(depth);
  if (flags.in_header(kHeadStackdepth) || op_has_trace_info(op)) size += 4;
  if (flags.guard()) size += kGuardSize;
  return size;
}

Placement place_block(const Flags& flags, Operation op, int depth, uint32_t alignment, uint32_t align_log2) {
  if (!flags.header()) return {0, 0, alignment, align_log2};
  const uint32_t guard = flags.guard() ? kGuardSize : 0;
  return {round_up(header_size(flags, op, depth) - guard, alignment), guard, alignment, align_log2};
}

void fill_header(Address p, const Flags& flags, uint32_t user_size, Operation op, const CallTrace& trace,
                 uint32_t align_log2) {
  const bool with_trace = flags.in_header(kHeadStackdepth);
  const Layout layout{flags.in_header(kHeadTid), flags.in_header(kHeadTime), with_trace || op_has_trace_info(op),
                      with_trace};
  header_word(p, kSelfLink) = (layout.trace_info ? kHasTraceInfo : 0U) | (layout.tid ? kHasTid : 0U);
  header_word(p, kNextLink) = (with_trace ? kHasTrace : 0U) | (flags.guard() ? kHasTailGuard : 0U);
  header_word(p, kPrevLink) = layout.time ? kHasTime : 0U;
  header_word(p, kUserSize) = user_size;
  if (flags.guard()) write_guard(p + user_size);
  if (layout.tid) field_at(p, layout.tid_offset()) = static_cast<uint32_t>(current_tid());
  if (layout.time) {
    field_at(p, layout.time_offset()) = static_cast<uint32_t>(clock_sec);
    field_at(p, layout.seq_offset()) = ++last_seq_num;
  }
  if (!layout.trace_info) return;
  const uint32_t depth = static_cast<uint32_t>(trace.depth);
  const Address info = p - layout.trace_info_offset();
  header_word(info, 0) =
      (with_trace ? depth & 0xFF : 0) | static_cast<uint32_t>(op & 0xF) << 8 | (align_log2 & 0xFF) << 16;
  if (depth >= 1) memcpy(reinterpret_cast<void*>(info - 4 * depth), trace.words, 4 * depth);
}

}  // namespace quarl
