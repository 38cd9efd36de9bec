#include "quarlheap/model/block_header.h"

#include <string.h>

#include "platform/thread_cache.h"
#include "quarlheap/model/call_trace.h"
#include "state/clock.h"

namespace quarl {

void fill_header(Address p, const Flags& flags, uint32_t user_size, Operation op, const CallTrace& trace,
                 uint32_t align_log2) {
  const HeaderLayout layout = HeaderLayout::for_new(flags, op);
  header::word(p, kSelfLink) = layout.self_flags();
  header::word(p, kNextLink) = layout.next_flags();
  header::word(p, kPrevLink) = layout.prev_flags();
  header::word(p, kUserSize) = user_size;
  // Bytes, not a word: nothing says that the end of the user's bytes is aligned.
  if (layout.guard) memcpy(pointer_to(p + user_size), kTailGuard, sizeof kTailGuard);
  if (layout.tid) header::field(p, layout.tid_offset()) = static_cast<uint32_t>(current_tid());
  if (layout.time) {
    header::field(p, layout.time_offset()) = static_cast<uint32_t>(clock_sec);
    header::field(p, layout.seq_offset()) = ++last_seq_num;
  }
  if (!layout.trace_info) return;
  const auto depth = static_cast<uint32_t>(trace.depth);  // 0 without a trace
  header::field(p, layout.trace_info_offset()) = TraceInfo::make(depth, op, align_log2).word;
  if (depth >= 1) memcpy(pointer_to(p - layout.trace_offset(depth)), trace.words, 4 * depth);
}

}  // namespace quarl
