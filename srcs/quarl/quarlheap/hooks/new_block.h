// SPDX-License-Identifier: Apache-2.0
// The making of a block, as the malloc, memalign and realloc hooks share it.
#pragma once

#include "quarlheap/hooks/hook_call.h"
#include "quarlheap/model/block_header.h"
#include "quarlheap/model/new_header.h"
#include "quarlheap/model/operation_record.h"
#include "quarlheap/model/used_list.h"

namespace quarl {

// What a new block is made with.
struct NewBlock {
  const Flags& flags;
  Operation op;
  uint32_t size;  // bytes asked for
  Placement place;
  const CallTrace& trace;

  Address user(void* raw) const { return address_of(raw) + place.offset; }
  HeaderLayout layout() const { return HeaderLayout::for_new(flags, op); }  // of one with a header
};

// True when offset and size together pass 2^32.
inline bool size_wraps(const Placement& place, uint32_t size) {
  return place.raw_size(size) < size;
}

// The raw block as it is: remembered, so that its release needs no search of the used list.
void* bare_block(void* raw);

// Before the lock is taken: writes what nobody else can see yet.
[[gnu::always_inline]] inline void begin_block(const NewBlock& block, void* raw, int tid) {
  if (!block.flags.header()) return;
  fill_header(block.user(raw), block.layout(), block.size, block.op, block.place, block.trace, tid);
}

// Under the lock: number, list and record. Returns the user pointer.
[[gnu::always_inline]] inline void* link_new_block(const NewBlock& block, void* raw) REQUIRES(hook_mutex) {
  const Address p = block.user(raw);
  if (!block.flags.header()) return bare_block(raw);
  const SoundBlock made(p, block.place.offset, block.layout(), block.size);
  number_header(p, made.layout());
  link_block(made);
  if (block.flags.record_log()) record_allocation(made, block.trace);
  return pointer_to(p);
}

// Builds the header, counts the allocation, links the block and records it, as far as the items in force want it.
// Returns the user pointer in the raw block.
[[gnu::always_inline]] inline void* finish_block(const NewBlock& block, void* raw) {
  if (!block.flags.tracked()) return bare_block(raw);
  const int tid = current_tid();
  begin_block(block, raw, tid);
  const ScopedLock lock(tid);
  const Counters counters = counters_for(block.flags);
  counters.allocated(block.op, block.size);
  count_mapped_chunk(counters, chunk_before(address_of(raw)));
  return link_new_block(block, raw);
}

// Counts and records a failed call of `op`.
[[gnu::cold, gnu::noinline]] void count_failure(const Flags& flags, Operation op, uint32_t size,
                                                const CallTrace& trace);

}  // namespace quarl
