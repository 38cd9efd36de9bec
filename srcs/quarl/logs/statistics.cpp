#include "logs/statistics.h"

#include <string.h>
#include <sys/prctl.h>

#include "platform/print.h"
#include "platform/thread_cache.h"
#include "quarlheap/raw/own_memory.h"

namespace quarl {

constinit ProfInfo* prof_info = nullptr;
constinit ThreadProf* thread_table = nullptr;

namespace {

template <typename Block>
bool make_block(Block** block, size_t size) {
  if (*block != nullptr) return true;
  void* memory = own_memory(size);
  if (memory == nullptr) return false;
  memset(memory, 0, size);
  *block = static_cast<Block*>(memory);
  return true;
}

// Marks in the thread cache a thread for which the table had no entry left.
ThreadProf no_entry;

ThreadProf* find_thread_entry(uint32_t tid) {
  for (ThreadProf* entry = thread_table; entry != thread_table + kThreadSlots; ++entry) {
    if (entry->tid == tid) return entry;
    if (entry->tid == 0) {
      entry->tid = tid;
      entry->reserved[2] = 0;
      prctl(PR_GET_NAME, entry->name);
      return entry;
    }
  }
  return &no_entry;
}

ThreadProf* own_thread_entry() {
  ThreadProf*& cached = thread_cache().prof;
  if (cached == nullptr) cached = find_thread_entry(static_cast<uint32_t>(current_tid()));
  if (cached != &no_entry) return cached;
  print(kStderr, "Exceed max thread num\n");
  return nullptr;
}

// The block of the process and that of a thread have these fields under the same names.
template <typename Block>
void hold(Block* block, uint32_t size) {
  block->unfree_size += size;
  if (block->unfree_size > block->unfree_peak) block->unfree_peak = block->unfree_size;
}

template <typename Block>
void hold_file(Block* block, uint32_t size) {
  block->unfree_file_size += size;
  if (block->unfree_file_size > block->unfree_file_peak) block->unfree_file_peak = block->unfree_file_size;
}

template <typename Block>
void count(Block* block, Operation op, uint32_t size) {
  ++block->calls[op];
  block->totals[op] += size;
}

// Does one update to both blocks.
template <typename Update>
void update(const Counters& counters, Update change) {
  if (counters.process != nullptr) change(counters.process);
  if (counters.thread != nullptr) change(counters.thread);
}

}  // namespace

bool make_prof_info() {
  return make_block(&prof_info, sizeof(ProfInfo));
}
bool make_thread_table() {
  return make_block(&thread_table, kThreadTableSize);
}

Counters counters_for(const Flags& flags) {
  if (!flags.prof() || prof_info == nullptr) return {};
  const bool per_thread = flags.per_thread() && thread_table != nullptr;
  return {prof_info, per_thread ? own_thread_entry() : nullptr};
}

void Counters::called(Operation op) const {
  update(*this, [=](auto* block) { ++block->calls[op]; });
}

void Counters::failed(Operation op) const {
  update(*this, [=](auto* block) {
    ++block->calls[op];
    ++block->failed[op];
  });
}

void Counters::allocated(Operation op, uint32_t size) const {
  update(*this, [=](auto* block) {
    count(block, op, size);
    hold(block, size);
  });
}

void Counters::released(Operation op, uint32_t size) const {
  update(*this, [=](auto* block) {
    count(block, op, size);
    block->unfree_size -= size;
  });
}

void Counters::undo_release(Operation op, uint32_t size) const {
  update(*this, [=](auto* block) {
    --block->calls[op];
    block->totals[op] -= size;
    block->unfree_size += size;
  });
}

void Counters::file_mapped(uint32_t size) const {
  update(*this, [=](auto* block) {
    count(block, kOpMmapFile, size);
    hold_file(block, size);
  });
}

void Counters::file_unmapped(uint32_t size) const {
  update(*this, [=](auto* block) {
    count(block, kOpMunmapFile, size);
    block->unfree_file_size -= size;
  });
}

void Counters::chunk_mapped(uint32_t size) const {
  update(*this, [=](auto* block) {
    count(block, kOpChunkMap, size);
    block->unfree_size -= size;
  });
}

void Counters::chunk_unmapped(uint32_t size) const {
  update(*this, [=](auto* block) {
    count(block, kOpChunkUnmap, size);
    block->unfree_size += size;
  });
}

void Counters::resized_in_place() const {
  if (thread != nullptr) ++thread->in_place;
}

void Counters::shrunk() const {
  if (thread != nullptr) ++thread->shrink;
}

uint32_t held_bytes() {
  return prof_info != nullptr ? __atomic_load_n(&prof_info->unfree_size, __ATOMIC_RELAXED) : 0;
}

void reset_statistics() {
  if (prof_info != nullptr) memset(prof_info, 0, sizeof *prof_info);
}

void print_statistics_guarded() {
  if (Flags().prof() && prof_info != nullptr) {
    print_statistics();
  } else {
    print(kStdout, "No prof data as the prof item is disable.\n");
  }
}

}  // namespace quarl
