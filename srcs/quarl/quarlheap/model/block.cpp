#include "quarlheap/model/block.h"

#include <string.h>

#include "platform/thread_cache.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

constinit uint32_t last_seq_num = 0;

namespace {

// Bytes, not a word: nothing says that the end of the user's bytes is aligned.
void write_guard(Address at) {
  memcpy(reinterpret_cast<void*>(at), kTailGuard, sizeof kTailGuard);
}

}  // namespace

void fill_header(Address p, const Flags& flags, uint32_t user_size, Operation op, const CallTrace& trace,
                 uint32_t align_log2) {
  const bool with_trace = flags.in_force(kHeadStackdepth);
  const Layout layout{flags.in_force(kHeadTid), flags.in_force(kHeadTime), with_trace || op_has_trace_info(op),
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
