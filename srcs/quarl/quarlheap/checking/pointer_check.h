// What the release and resize hooks do first with a pointer: is it a block, was it, and is it sound?
#pragma once

#include "quarlheap/checking/block_check.h"

namespace quarl {

// Any fault of the block is reported and stops the thread; returns only when it is sound. The lock is released before
// the thread parks.
void qr_check_before_release(DoubtfulBlock block, bool lock_held) REQUIRES(hook_mutex);

// True when p is on the used list. A broken header met on the way is reported and stops the thread.
bool qr_find_used_block(Address p, bool lock_held) REQUIRES(hook_mutex);

// A pointer that passed: one of our blocks, sound, or a foreign one (memory without a header of ours).
class CheckedPointer {
 public:
  // `offset`: from the raw block to p, 0 for a foreign pointer. `whole`: both neighbours name it.
  CheckedPointer(Address p, uint32_t offset, bool whole) : p_(p), offset_(offset), whole_(whole) {}

  bool headed() const { return offset_ != 0; }
  SoundBlock block() const { return {p_, offset_}; }  // of a headed one
  bool well_linked() const { return whole_; }
  Address raw() const { return p_ - offset_; }
  ChunkWord chunk() const { return chunk_before(raw()); }
  // Bytes that a release gives back: what the user asked for, or the allocator's chunk of a foreign pointer.
  uint32_t size() const { return headed() ? block().size() : chunk().size(); }

 private:
  Address p_;
  uint32_t offset_;
  bool whole_;
};

[[gnu::cold]] bool memory_exists_before(Address p);

// A pointer to memory that is not there cannot be looked at: the allocator gets it as it is. No lock is needed.
inline bool leads_nowhere(Address p) {
  return __builtin_expect(!page_is_live(p - 4), 0) && !memory_exists_before(p);
}

// The whole classification of a non-null pointer; every fault is reported and stops the thread.
CheckedPointer classify_pointer(Address p) REQUIRES(hook_mutex);

}  // namespace quarl
