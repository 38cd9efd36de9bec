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
  // `offset`: from the raw block to p, 0 for a foreign pointer.
  CheckedPointer(Address p, uint32_t offset) : p_(p), offset_(offset) {}

  bool headed() const { return offset_ != 0; }
  SoundBlock block() const { return SoundBlock(p_); }  // of a headed one
  Address raw() const { return p_ - offset_; }
  ChunkWord chunk() const { return chunk_before(raw()); }
  // Bytes that a release gives back: what the user asked for, or the allocator's chunk of a foreign pointer.
  uint32_t size() const { return headed() ? block().size() : chunk().size(); }

 private:
  Address p_;
  uint32_t offset_;
};

// The whole classification of a non-null pointer; every fault is reported and stops the thread.
CheckedPointer classify_pointer(Address p) REQUIRES(hook_mutex);

}  // namespace quarl
