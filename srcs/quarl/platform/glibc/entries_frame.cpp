// SPDX-License-Identifier: Apache-2.0
// The six hooked entries of the layer on processors where a routine that calls a hook has a frame: i686.
#include <sys/mman.h>

#include "platform/glibc/contract.h"
#include "platform/glibc/glibc.h"
#include "platform/malloc_header.h"

namespace {

using quarl::glibc::inside_checker;
using quarl::glibc::kLibcAlignment;
using quarl::glibc::wants_empty_block;

// The hook in force for this call, null when the raw entry is to be used.
template <typename Hook>
Hook active(Hook hook) {
  return inside_checker() ? nullptr : hook;
}

const void* caller() {
  return nullptr;
}  // the hooks do not use it

}  // namespace

extern "C" {

QUARL_EXPORT void* malloc(size_t size) {
  if (wants_empty_block(size)) return memalign(kLibcAlignment, 0);
  if (auto hook = active(__malloc_hook)) return hook(size, caller());
  return quarl_layer_allocate(size);
}

QUARL_EXPORT void free(void* ptr) {
  if (auto hook = active(__free_hook)) {
    hook(ptr, caller());
  } else {
    quarl_layer_release(ptr);
  }
}

QUARL_EXPORT void* realloc(void* ptr, size_t size) {
  if (ptr == nullptr && wants_empty_block(size)) return memalign(kLibcAlignment, 0);
  if (auto hook = active(__realloc_hook)) return hook(ptr, size, caller());
  return quarl_layer_resize(ptr, size);
}

QUARL_EXPORT void* memalign(size_t alignment, size_t size) {
  if (auto hook = active(__memalign_hook)) return hook(alignment, size, caller());
  return quarl_layer_allocate_aligned(alignment, size);
}

QUARL_EXPORT void* mmap(void* addr, size_t length, int prot, int flags, int fd, off_t offset) {
  if (auto hook = active(__mmap_hook)) return hook(addr, length, prot, flags, fd, offset);
  return ext_mmap(addr, length, prot, flags, fd, offset);
}

QUARL_EXPORT int munmap(void* addr, size_t length) {
  if (auto hook = active(__munmap_hook)) return hook(addr, length);
  return ext_munmap(addr, length);
}

}  // extern "C"
