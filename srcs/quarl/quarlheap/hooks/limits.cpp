// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/hooks/limits.h"

#include <stdlib.h>

#include "logs/statistics/statistics.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/fault_stop.h"
#include "quarlheap/model/call_trace.h"
#include "state/events/event.h"
#include "state/process.h"

extern "C" {
constinit unsigned heap_limit = 0xFFFFFFFF;
constinit unsigned stack_limit = 0xFFFFFFFF;
constinit unsigned stack_use = 0;
}

namespace quarl {
namespace {

constexpr long kOneIn = 7;

bool past(uint32_t in_use, uint32_t size, const unsigned& limit) {
  return in_use + size > *static_cast<const volatile unsigned*>(&limit);
}

// Another thread may have been inside random when the process was forked: in the child the C library would wait for it
// for ever.
long draw_in_child() {
  static constinit uint32_t state = 0;
  uint32_t drawn = __atomic_load_n(&state, __ATOMIC_RELAXED);
  if (drawn == 0) drawn = static_cast<uint32_t>(proc_pid) * 2654435761U | 1;
  drawn ^= drawn << 13;
  drawn ^= drawn >> 17;
  drawn ^= drawn << 5;
  __atomic_store_n(&state, drawn, __ATOMIC_RELAXED);
  return static_cast<long>(drawn >> 1);
}

// What is held of it, and what the request would add to it.
struct Limit {
  const char* kind;
  StopReason reason;
  uint32_t most;
  uint32_t held;
};

void tell_limit(const Limit& limit, uint32_t size) {
  if (!events_wanted()) return;
  uint32_t trace[kMaxTrace];
  const int depth = capture_trace(hook_frame_of(this_frame()), trace, kMaxTrace);
  const Event event("limit");
  if (!event) return;
  event.line().text("kind", limit.kind).number("limit", limit.most).number("held", limit.held).number("request", size);
  event.trace("trace", trace, depth);
}

[[noreturn, gnu::cold, gnu::noinline]] void stop_at(const Limit& limit, uint32_t size) {
  tell_limit(limit, size);
  qr_fault_stop(current_tid(), false, limit.reason);
}

}  // namespace

bool draw_failure() {
  if (thread_cache().ending) return false;
  return (forked_child ? draw_in_child() : random()) % kOneIn == 0;
}

void check_limits(const Flags& flags, uint32_t size) {
  if (!flags.prof() || thread_cache().ending) return;
  const uint32_t held = held_bytes();
  const bool heap = flags.in_force(kHeapLimit) && past(held, size, heap_limit);
  if (heap) stop_at({"heap", StopReason::kHeapLimit, heap_limit, held}, size);
  const bool stack = flags.in_force(kStackLimit) && past(stack_use, size, stack_limit);
  if (stack) stop_at({"stack", StopReason::kStackLimit, stack_limit, stack_use}, size);
}

}  // namespace quarl
