// SPDX-License-Identifier: Apache-2.0
// Usage statistics: counters of the process and, on request, of each thread. The blocks are written verbatim into the
// log files.
#pragma once

#include "logs/statistics/counters.h"
#include "state/hook_lock.h"
#include "state/settings.h"

namespace quarl {

// Null until the item that needs it is first applied, and when there is no memory: everything skips it then.
extern ProfInfo* prof_info;       // what is hot of it is in hot_figures
extern ThreadProf* thread_table;  // kThreadSlots entries

// Allocate them, cleared, when they do not exist. False when there is no memory.
bool make_prof_info();
bool make_thread_table();

// Finds the counters for this call; the thread's entry is looked up once per thread. "Exceed max thread num\n" on
// standard error for a thread without one.
ThreadProf* own_thread_entry() REQUIRES(hook_mutex);
inline Counters counters_for(const Flags& flags) REQUIRES(hook_mutex) {
  if (!flags.prof() || prof_info == nullptr) return {};
  return {prof_info, flags.per_thread() && thread_table != nullptr ? own_thread_entry() : nullptr};
}

// The block of the process with all of its figures, to be read or written out; null when there is none.
const ProfInfo* gathered_statistics() REQUIRES(hook_mutex);

// Bytes held through the heap and anonymous mappings; read without the lock, so perhaps one update old.
uint32_t held_bytes();

void reset_statistics() REQUIRES(hook_mutex);
void print_statistics() REQUIRES(hook_mutex);
// The same while QUARL_PROF is in force, else a line that says so.
void print_statistics_guarded() REQUIRES(hook_mutex);

}  // namespace quarl
