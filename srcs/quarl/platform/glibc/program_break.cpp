// SPDX-License-Identifier: Apache-2.0
#include "platform/glibc/program_break.h"

#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include "platform/glibc/glibc.h"
#include "platform/glibc/loaded_symbols.h"

namespace quarl::glibc {
namespace {

constinit pthread_mutex_t break_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

template <typename Function>
Function next_of(const char* name, void** known) {
  void* address = __atomic_load_n(known, __ATOMIC_RELAXED);
  if (address == nullptr) address = next_function(name);
  __atomic_store_n(known, address, __ATOMIC_RELAXED);
  Function function;
  memcpy(&function, &address, sizeof function);
  return function;
}

}  // namespace

BreakLock::BreakLock() {
  pthread_mutex_lock(&break_mutex);
}

BreakLock::~BreakLock() {
  pthread_mutex_unlock(&break_mutex);
}

void reset_break_lock() {
  break_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
}

}  // namespace quarl::glibc

using quarl::glibc::BreakLock;
using quarl::glibc::next_of;

extern "C" {

// Others may define the one by the other. The next one is looked for before the lock is taken: that takes the loader's,
// which a thread that loads a library holds while it allocates.
QUARL_EXPORT void* sbrk(intptr_t bytes) noexcept {
  static constinit void* next = nullptr;
  const auto go_on = next_of<void* (*)(intptr_t)>("sbrk", &next);
  const BreakLock lock;
  return go_on(bytes);
}
QUARL_EXPORT void* __sbrk(intptr_t bytes) {
  static constinit void* next = nullptr;
  const auto go_on = next_of<void* (*)(intptr_t)>("__sbrk", &next);
  const BreakLock lock;
  return go_on(bytes);
}
QUARL_EXPORT int brk(void* end) noexcept {
  static constinit void* next = nullptr;
  const auto go_on = next_of<int (*)(void*)>("brk", &next);
  const BreakLock lock;
  return go_on(end);
}

}  // extern "C"
