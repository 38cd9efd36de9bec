// The making of a block, as the malloc, memalign and realloc hooks share it.
#pragma once

#include "quarlheap/hooks/hook_call.h"
#include "quarlheap/model/block_header.h"

namespace quarl {

// What a new block is made with.
struct NewBlock {
  const Flags& flags;
  Operation op;
  uint32_t size;  // bytes asked for
  Placement place;
  const CallTrace& trace;
};

// True when offset and size together pass 2^32.
inline bool size_wraps(const Placement& place, uint32_t size) {
  return place.raw_size(size) < size;
}

// Counts the allocation, builds the header, links the block and records it, as far as the items in force want it.
// Returns the user pointer in the raw block.
void* finish_block(const NewBlock& block, void* raw);

// The raw block as it is: remembered, so that its release needs no search of the used list.
void* bare_block(void* raw);

// Header, list and record alone, under a lock that the caller holds.
void* build_block(const NewBlock& block, Address raw) REQUIRES(hook_mutex);

// Counts and records a failed call of `op`.
void count_failure(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace);

}  // namespace quarl
