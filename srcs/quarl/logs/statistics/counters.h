// SPDX-License-Identifier: Apache-2.0
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

// Those of the process's figures that are kept here instead of in its block: gathered_statistics() puts them there.
inline constexpr HotFigures& hot_figures GUARDED_BY(hook_mutex) = hot_words.figures;

namespace detail {

inline uint32_t& calls(ThreadProf* block, Operation op) {
  return block->calls[op];
}
inline uint64_t& bytes(ThreadProf* block, Operation op) {
  return block->totals[op];
}
inline uint32_t& unfree_size(ThreadProf* block) {
  return block->unfree_size;
}
inline uint32_t& unfree_peak(ThreadProf* block) {
  return block->unfree_peak;
}

[[gnu::always_inline]] inline uint32_t& calls(ProfInfo* block, Operation op) REQUIRES(hook_mutex) {
  if (op == kOpMalloc) return hot_figures.malloc_calls;
  return op == kOpFree ? hot_figures.free_calls : block->calls[op];
}
[[gnu::always_inline]] inline uint64_t& bytes(ProfInfo* block, Operation op) REQUIRES(hook_mutex) {
  if (op == kOpMalloc) return hot_figures.malloc_bytes;
  return op == kOpFree ? hot_figures.free_bytes : block->totals[op];
}
inline uint32_t& unfree_size(ProfInfo*) REQUIRES(hook_mutex) {
  return hot_figures.unfree_size;
}
inline uint32_t& unfree_peak(ProfInfo*) REQUIRES(hook_mutex) {
  return hot_figures.unfree_peak;
}

// The block of the process and that of a thread have these fields under the same names.
template <typename Block>
inline void hold(Block* block, uint32_t size) REQUIRES(hook_mutex) {
  const uint32_t held = unfree_size(block) += size;
  if (held > unfree_peak(block)) unfree_peak(block) = held;
}

template <typename Block>
inline void hold_file(Block* block, uint32_t size) {
  block->unfree_file_size += size;
  if (block->unfree_file_size > block->unfree_file_peak) block->unfree_file_peak = block->unfree_file_size;
}

template <typename Block>
inline void count(Block* block, Operation op, uint32_t size) REQUIRES(hook_mutex) {
  ++calls(block, op);
  bytes(block, op) += size;
}

// Does one update to both blocks.
template <typename Update>
[[gnu::always_inline]] inline void update(const Counters& counters, Update change) REQUIRES(hook_mutex) {
  if (counters.process != nullptr) change(counters.process);
  if (counters.thread != nullptr) change(counters.thread);
}

}  // namespace detail

inline void Counters::called(Operation op) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) { ++detail::calls(block, op); });
}

inline void Counters::failed(Operation op) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) {
    ++detail::calls(block, op);
    ++block->failed[op];
  });
}

inline void Counters::allocated(Operation op, uint32_t size) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) {
    detail::count(block, op, size);
    detail::hold(block, size);
  });
}

inline void Counters::released(Operation op, uint32_t size) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) {
    detail::count(block, op, size);
    detail::unfree_size(block) -= size;
  });
}

inline void Counters::undo_release(Operation op, uint32_t size) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) {
    --detail::calls(block, op);
    detail::bytes(block, op) -= size;
    detail::unfree_size(block) += size;
  });
}

inline void Counters::file_mapped(uint32_t size) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) {
    detail::count(block, kOpMmapFile, size);
    detail::hold_file(block, size);
  });
}

inline void Counters::file_unmapped(uint32_t size) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) {
    detail::count(block, kOpMunmapFile, size);
    block->unfree_file_size -= size;
  });
}

inline void Counters::chunk_mapped(uint32_t size) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) {
    detail::count(block, kOpChunkMap, size);
    detail::unfree_size(block) -= size;
  });
}

inline void Counters::chunk_unmapped(uint32_t size) const {
  detail::update(*this, [=](auto* block) REQUIRES(hook_mutex) {
    detail::count(block, kOpChunkUnmap, size);
    detail::unfree_size(block) += size;
  });
}

inline void Counters::resized_in_place() const {
  if (thread != nullptr) ++thread->in_place;
}

inline void Counters::shrunk() const {
  if (thread != nullptr) ++thread->shrink;
}

}  // namespace quarl
