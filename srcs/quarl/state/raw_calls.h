// SPDX-License-Identifier: Apache-2.0
// The raw operations of the hooks: through the raw entries while the hooks are installed, through the public ones
// otherwise. Never called under hook_mutex.
#pragma once

#include <stdlib.h>
#include <sys/mman.h>

#include "platform/libc_hooks.h"
#include "platform/malloc_header.h"
#include "state/process.h"

namespace quarl::raw {

inline bool installed() {
  return __atomic_load_n(&hooks_installed, __ATOMIC_RELAXED) != 0;
}

inline void* allocate(size_t size) {
  return installed() ? ext_malloc(size) : malloc(size);
}
inline void release(void* block) {
  installed() ? ext_free(block) : free(block);
}
inline void* resize(void* block, size_t size) {
  return installed() ? ext_realloc(block, size) : realloc(block, size);
}
inline void* allocate_aligned(size_t alignment, size_t size) {
  return installed() ? ext_memalign(alignment, size) : memalign(alignment, size);
}
inline void* map(void* addr, size_t length, int prot, int flags, int fd, long offset) {
  return installed() ? ext_mmap(addr, length, prot, flags, fd, offset) : mmap(addr, length, prot, flags, fd, offset);
}
inline int unmap(void* addr, size_t length) {
  return installed() ? ext_munmap(addr, length) : munmap(addr, length);
}

}  // namespace quarl::raw
