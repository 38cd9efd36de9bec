// Usage statistics: counters of the process and, on request, of each thread. The blocks are written verbatim into the
// log files.
#pragma once

#include "config/state/config_state.h"
#include "logs/format.h"
#include "quarlheap/lock/hook_lock.h"

namespace quarl {

// Null until the item that needs it is first applied, and when there is no memory: everything skips it then.
extern ProfInfo* prof_info;
extern ThreadProf* thread_table;  // kThreadSlots entries

// Allocate them, cleared, when they do not exist. False when there is no memory.
bool make_prof_info();
bool make_thread_table();

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

// Finds the counters for this call; the thread's entry is looked up once per thread. "Exceed max thread num\n" on
// standard error for a thread without one.
Counters counters_for(const Flags& flags) REQUIRES(hook_mutex);

// Bytes held through the heap and anonymous mappings; read without the lock, so perhaps one update old.
uint32_t held_bytes();

void reset_statistics() REQUIRES(hook_mutex);
void print_statistics() REQUIRES(hook_mutex);
// The same while QUARL_PROF is in force, else a line that says so.
void print_statistics_guarded() REQUIRES(hook_mutex);

}  // namespace quarl
