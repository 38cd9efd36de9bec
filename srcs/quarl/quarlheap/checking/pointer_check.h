// SPDX-License-Identifier: Apache-2.0
// What the release and resize hooks do first with a pointer: is it a block, was it, and is it sound?
#pragma once

#include "quarlheap/checking/block_check.h"
#include "quarlheap/model/used_list.h"

namespace quarl {

// Any fault of the block is reported and stops the thread; returns only when it is sound. The lock is released before
// the thread parks.
void qr_check_before_release(DoubtfulBlock block, bool lock_held) REQUIRES(hook_mutex);

// True when p is on the used list. A broken header met on the way is reported and stops the thread.
bool qr_find_used_block(Address p, bool lock_held) REQUIRES(hook_mutex);

// A pointer that passed: one of our blocks, sound, or a foreign one (memory without a header of ours).
class CheckedPointer {
 public:
  explicit CheckedPointer(Address foreign)
      : block_(foreign, 0, {}, chunk_before(foreign).size()), chunk_(chunk_before(foreign)) {}
  CheckedPointer(const SoundBlock& block, Ties ties) : block_(block), chunk_(chunk_before(block.raw())), ties_(ties) {}

  bool headed() const { return block_.offset() != 0; }
  const SoundBlock& block() const { return block_; }  // of a headed one
  Ties ties() const { return ties_; }                 // on the used list
  Address raw() const { return block_.raw(); }
  ChunkWord chunk() const { return chunk_; }
  // Bytes that a release gives back: what the user asked for, or the allocator's chunk of a foreign pointer.
  uint32_t size() const { return block_.size(); }

 private:
  SoundBlock block_;  // a foreign pointer is its own raw block
  ChunkWord chunk_;
  Ties ties_;
};

// A null pointer, or one to memory that is not there, cannot be looked at: the allocator gets it as it is. No lock is
// needed.
inline bool leads_nowhere(Address p) {
  if (__builtin_expect(page_is_live(p - 4), 1)) return false;
  return p == 0 || (!is_bare_block(pointer_to(p)) && !memory_exists(p - 4));
}

// The short way: whether the block, which names itself, is sound for certain. When it is not, nothing is known of it
// yet.
[[gnu::always_inline]] inline bool is_certain(const BoundedBlock& block, Ties* ties) REQUIRES(hook_mutex) {
  if (__builtin_expect(!block || used_list_closed, 0)) return false;
  *ties = ties_of(block.p());
  return __builtin_expect(bool(*ties), 1) && check_linked_block(block) == QR_FAULT_NONE;
}

// The whole classification of a non-null pointer; every fault is reported and stops the thread.
[[gnu::cold, gnu::noinline]] CheckedPointer classify_pointer(Address p) REQUIRES(hook_mutex);

}  // namespace quarl
