// The steps that the hooks share. A hook reads as a list of them.
#pragma once

#include "logs/statistics.h"
#include "platform/thread_cache.h"
#include "quarlheap/model/block.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

// The first step of every hook: carries out a pending reload and, when one of the triggers is in force, checks the
// whole heap. Returns the flags that the rest of the call works with.
Flags enter_hook(uint32_t check_triggers);

// Captures the call trace when QUARL_HEAD_STACKDEPTH is in force. Inlined, because a capture skips the frame of its
// caller, which has to be the hook.
[[gnu::always_inline]] inline void take_trace(const Flags& flags, CallTrace* trace) {
  if (flags.in_header(kHeadStackdepth)) trace->depth = capture_trace(trace->words, stack_depth);
}

// The chunk that the allocator made for a block by a mapping of its own: the mapping hook has counted its bytes once.
void count_mapped_chunk(const Counters& counters, Address raw) REQUIRES(hook_mutex);
void count_unmapped_chunk(const Counters& counters, Address raw) REQUIRES(hook_mutex);

// Bytes that a release gives back: what the user asked for, or the allocator's chunk size of a foreign pointer.
inline uint32_t released_size(Address p) {
  return qr_is_block(p) ? user_size_of(p) : chunk_before(p).size();
}

inline Address address_of(const void* pointer) {
  return static_cast<Address>(reinterpret_cast<uintptr_t>(pointer));
}
inline void* pointer_to(Address address) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(address));
}

}  // namespace quarl
