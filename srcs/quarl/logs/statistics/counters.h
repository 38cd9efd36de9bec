// The counters that one hook call updates. In a header, because every hooked call passes here.
#pragma once

#include "logs/format.h"
#include "state/hook_lock.h"

namespace quarl {

// The counters that one hook call updates: the process's, and the calling thread's while QUARL_THREAD is in force.
// Null pointers are skipped; both are null while QUARL_PROF is not in force.
struct Counters {
  ProfInfo* process = nullptr;
  ThreadProf* thread = nullptr;

  void called(Operation op) const REQUIRES(hook_mutex);
  void failed(Operation op) const REQUIRES(hook_mutex);                    // also a call
  void allocated(Operation op, uint32_t size) const REQUIRES(hook_mutex);  // also a call
  void released(Operation op, uint32_t size) const REQUIRES(hook_mutex);   // also a call
  void undo_release(Operation op, uint32_t size) const REQUIRES(hook_mutex);
  void file_mapped(uint32_t size) const REQUIRES(hook_mutex);
  void file_unmapped(uint32_t size) const REQUIRES(hook_mutex);
  // A chunk that the allocator mapped or unmapped for a block: the mapping hooks count its bytes as well, so they
  // leave the held bytes here.
  void chunk_mapped(uint32_t size) const REQUIRES(hook_mutex);
  void chunk_unmapped(uint32_t size) const REQUIRES(hook_mutex);
  void resized_in_place() const REQUIRES(hook_mutex);
  void shrunk() const REQUIRES(hook_mutex);
};

namespace detail {

// The block of the process and that of a thread have these fields under the same names.
template <typename Block>
inline void hold(Block* block, uint32_t size) {
  block->unfree_size += size;
  if (block->unfree_size > block->unfree_peak) block->unfree_peak = block->unfree_size;
}

template <typename Block>
inline void hold_file(Block* block, uint32_t size) {
  block->unfree_file_size += size;
  if (block->unfree_file_size > block->unfree_file_peak) block->unfree_file_peak = block->unfree_file_size;
}

template <typename Block>
inline void count(Block* block, Operation op, uint32_t size) {
  ++block->calls[op];
  block->totals[op] += size;
}

// Does one update to both blocks.
template <typename Update>
[[gnu::always_inline]] inline void update(const Counters& counters, Update change) {
  if (counters.process != nullptr) change(counters.process);
  if (counters.thread != nullptr) change(counters.thread);
}

}  // namespace detail

inline void Counters::called(Operation op) const {
  detail::update(*this, [=](auto* block) { ++block->calls[op]; });
}

inline void Counters::failed(Operation op) const {
  detail::update(*this, [=](auto* block) {
    ++block->calls[op];
    ++block->failed[op];
  });
}

inline void Counters::allocated(Operation op, uint32_t size) const {
  detail::update(*this, [=](auto* block) {
    detail::count(block, op, size);
    detail::hold(block, size);
  });
}

inline void Counters::released(Operation op, uint32_t size) const {
  detail::update(*this, [=](auto* block) {
    detail::count(block, op, size);
    block->unfree_size -= size;
  });
}

inline void Counters::undo_release(Operation op, uint32_t size) const {
  detail::update(*this, [=](auto* block) {
    --block->calls[op];
    block->totals[op] -= size;
    block->unfree_size += size;
  });
}

inline void Counters::file_mapped(uint32_t size) const {
  detail::update(*this, [=](auto* block) {
    detail::count(block, kOpMmapFile, size);
    detail::hold_file(block, size);
  });
}

inline void Counters::file_unmapped(uint32_t size) const {
  detail::update(*this, [=](auto* block) {
    detail::count(block, kOpMunmapFile, size);
    block->unfree_file_size -= size;
  });
}

inline void Counters::chunk_mapped(uint32_t size) const {
  detail::update(*this, [=](auto* block) {
    detail::count(block, kOpChunkMap, size);
    block->unfree_size -= size;
  });
}

inline void Counters::chunk_unmapped(uint32_t size) const {
  detail::update(*this, [=](auto* block) {
    detail::count(block, kOpChunkUnmap, size);
    block->unfree_size += size;
  });
}

inline void Counters::resized_in_place() const {
  if (thread != nullptr) ++thread->in_place;
}

inline void Counters::shrunk() const {
  if (thread != nullptr) ++thread->shrink;
}

}  // namespace quarl
