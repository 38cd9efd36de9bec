// SPDX-License-Identifier: Apache-2.0
// The steps that the hooks share. A hook reads as a list of them.
#pragma once

#include "config/default_flags.h"
#include "logs/statistics/statistics.h"
#include "platform/chunk.h"
#include "platform/thread_cache.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

// The first step of every hook: carries out a pending reload and, when one of the triggers is in force, checks the
// whole heap. Returns the flags that the rest of the call works with.
Flags check_and_reload(uint32_t check_triggers);

inline Flags enter_hook(uint32_t check_triggers) {
  const Flags flags;
  if (__builtin_expect(!flags.reload_wanted() && !flags.check_trigger(check_triggers), 1)) return flags;
  return check_and_reload(check_triggers);
}

// The steps of a hook are compiled more than once: in the hook itself for the default flags, of which the compiler
// knows what is in force, for those of the record log, and for any flags. Each is a function of the hook's arguments
// that leaves a call that is not its own to the next one, and its frame before. All that leads from any of them to a
// raw entry is inlined: the allocator may have to map a chunk, and each frame on the way would stand in the trace of
// the mapping for one of the application's.

// Captures the call trace when QUARL_HEAD_STACKDEPTH is in force. `frame` is the hook's: the trace begins in it.
inline void take_trace(const Flags& flags, HookFrame frame, CallTrace* trace) {
  if (flags.in_force(kHeadStackdepth)) trace->depth = capture_trace(frame, trace->words, settings.stack_depth);
}

// Bytes of a chunk that is a mapping of its own. The mapping hooks count them as well.
uint32_t mapped_bytes(ChunkWord chunk);

inline void count_mapped_chunk(const Counters& counters, ChunkWord chunk) REQUIRES(hook_mutex) {
  if (__builtin_expect(chunk.mapped(), 0)) counters.chunk_mapped(mapped_bytes(chunk));
}
inline void count_unmapped_chunk(const Counters& counters, ChunkWord chunk) REQUIRES(hook_mutex) {
  if (__builtin_expect(chunk.mapped(), 0)) counters.chunk_unmapped(mapped_bytes(chunk));
}

}  // namespace quarl
