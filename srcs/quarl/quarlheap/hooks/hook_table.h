// SPDX-License-Identifier: Apache-2.0
// The six hooks and their installation in the C library's hook variables.
#pragma once

#include <cstddef>

namespace quarl {

void* malloc_hook(size_t size, const void* caller);
void free_hook(void* ptr, const void* caller);
void* realloc_hook(void* ptr, size_t size, const void* caller);
void* memalign_hook(size_t alignment, size_t size, const void* caller);
void* mmap_hook(void* addr, size_t length, int prot, int flags, int fd, long offset);
int munmap_hook(void* addr, size_t length);

// Saves the six variables and stores the hooks; hooks_installed becomes 1 when all are stored. `initializer` goes into
// __malloc_initialize_hook.
void install_hooks(void (*initializer)());

// Puts the saved values back; hooks_installed becomes 0 when all are.
void restore_hooks();

}  // namespace quarl
