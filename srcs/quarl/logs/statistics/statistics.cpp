// SPDX-License-Identifier: Apache-2.0
#include "logs/statistics/statistics.h"

#include <string.h>

#include "platform/confinement.h"
#include "platform/print.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "state/own_memory.h"

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
      sys::thread_name(entry->name);
      return entry;
    }
  }
  return &no_entry;
}

}  // namespace

bool make_prof_info() {
  return make_block(&prof_info, sizeof(ProfInfo));
}
bool make_thread_table() {
  return make_block(&thread_table, kThreadTableSize);
}

[[gnu::noinline]] ThreadProf* own_thread_entry() {
  ThreadProf*& cached = thread_cache().prof;
  if (cached == nullptr) cached = find_thread_entry(static_cast<uint32_t>(current_tid()));
  if (cached != &no_entry) return cached;
  if (!confined()) print_failure(kStderr, {"threads"}, "Exceed max thread num\n");
  return nullptr;
}

const ProfInfo* gathered_statistics() {
  if (prof_info == nullptr) return nullptr;
  prof_info->calls[kOpMalloc] = hot_figures.malloc_calls;
  prof_info->calls[kOpFree] = hot_figures.free_calls;
  prof_info->totals[kOpMalloc] = hot_figures.malloc_bytes;
  prof_info->totals[kOpFree] = hot_figures.free_bytes;
  prof_info->unfree_size = hot_figures.unfree_size;
  prof_info->unfree_peak = hot_figures.unfree_peak;
  return prof_info;
}

uint32_t held_bytes() {
  return __atomic_load_n(&hot_words.figures.unfree_size, __ATOMIC_RELAXED);
}

void reset_statistics() {
  hot_figures = {};
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
