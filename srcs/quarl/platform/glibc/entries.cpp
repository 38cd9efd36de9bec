// SPDX-License-Identifier: Apache-2.0
// The hook variables, and the public entries that go through the hook of another operation.
#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/glibc/allocators.h"
#include "platform/glibc/big_offset.h"
#include "platform/glibc/contract.h"
#include "platform/glibc/glibc.h"
#include "platform/glibc/mapped_book.h"
#include "platform/malloc_header.h"

using quarl::glibc::aligned_alloc_takes_any;
using quarl::glibc::bypassed;
using quarl::glibc::inside_checker;
using quarl::glibc::kLibcAlignment;
using quarl::glibc::libc_allocator;
using quarl::glibc::realloc_in_front;
using quarl::glibc::wants_empty_block;

extern "C" {

[[gnu::visibility("hidden")]] void* (*__malloc_hook)(size_t, const void*) = nullptr;
[[gnu::visibility("hidden")]] void (*__free_hook)(void*, const void*) = nullptr;
[[gnu::visibility("hidden")]] void* (*__realloc_hook)(void*, size_t, const void*) = nullptr;
[[gnu::visibility("hidden")]] void* (*__memalign_hook)(size_t, size_t, const void*) = nullptr;
[[gnu::visibility("hidden")]] void* (*__mmap_hook)(void*, size_t, int, int, int, long) = nullptr;
[[gnu::visibility("hidden")]] int (*__munmap_hook)(void*, size_t) = nullptr;
[[gnu::visibility("hidden")]] void (*__malloc_initialize_hook)(void) = nullptr;

}  // extern "C"

namespace {

// Inlined into the entry, so that a trace reads: the entry, then its caller.
[[gnu::always_inline]] inline void* hooked_malloc(size_t size) {
  auto hook = __malloc_hook;
  return hook != nullptr && !inside_checker() ? hook(size, nullptr) : quarl_layer_allocate(size);
}

[[gnu::always_inline]] inline void* hooked_memalign(size_t alignment, size_t size) {
  auto hook = __memalign_hook;
  return hook != nullptr && !inside_checker() ? hook(alignment, size, nullptr)
                                              : quarl_layer_allocate_aligned(alignment, size);
}

// `alone`: whoever releases the block knows only what the C library gives out.
[[gnu::always_inline]] inline void* aligned(bool alone, size_t alignment, size_t size) {
  return alone ? libc_allocator.allocate_aligned(alignment, size) : hooked_memalign(alignment, size);
}

// Touching the pages of a fresh mapping only to clear them again would cost the application its memory.
bool cleared_by_kernel(void* block) {
  void* raw = quarl::glibc::find_headed(block).raw;
  const auto* chunk = quarl::glibc::mapped_book.find(quarl::address_of(raw != nullptr ? raw : block));
  return chunk != nullptr && chunk->cleared;
}

bool power_of_two(size_t n) {
  return n != 0 && (n & (n - 1)) == 0;
}

}  // namespace

extern "C" {

QUARL_EXPORT void* calloc(size_t count, size_t size) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) {
    errno = ENOMEM;
    return nullptr;
  }
  if (__builtin_expect(bypassed.calloc, 0)) return libc_allocator.allocate_cleared(count, size);
  void* block = wants_empty_block(bytes) ? hooked_memalign(kLibcAlignment, 0) : hooked_malloc(bytes);
  if (block != nullptr && !cleared_by_kernel(block)) memset(block, 0, bytes);
  return block;
}

QUARL_EXPORT void* reallocarray(void* ptr, size_t count, size_t size) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) {
    errno = ENOMEM;
    return nullptr;
  }
  quarl::glibc::find_allocators();
  if (realloc_in_front != nullptr) return realloc_in_front(ptr, bytes);
  if (ptr == nullptr && wants_empty_block(bytes)) return hooked_memalign(kLibcAlignment, 0);
  auto hook = __realloc_hook;
  return hook != nullptr && !inside_checker() ? hook(ptr, bytes, nullptr) : quarl_layer_resize(ptr, bytes);
}

QUARL_EXPORT void* aligned_alloc(size_t alignment, size_t size) {
  if (!power_of_two(alignment) && !aligned_alloc_takes_any()) {
    errno = EINVAL;
    return nullptr;
  }
  return aligned(bypassed.aligned_alloc, alignment, size);
}

QUARL_EXPORT int posix_memalign(void** out, size_t alignment, size_t size) {
  if (!power_of_two(alignment) || alignment % sizeof(void*) != 0) return EINVAL;
  const int error = errno;
  void* block = aligned(bypassed.posix_memalign, alignment, size);
  errno = error;
  if (block == nullptr) return ENOMEM;
  *out = block;
  return 0;
}

QUARL_EXPORT void* valloc(size_t size) {
  return aligned(bypassed.valloc, static_cast<size_t>(getpagesize()), size);
}

QUARL_EXPORT void* pvalloc(size_t size) {
  const auto page = static_cast<size_t>(getpagesize());
  if (size > SIZE_MAX - page) {
    errno = ENOMEM;
    return nullptr;
  }
  return aligned(bypassed.pvalloc, page, (size + page - 1) & ~(page - 1));
}

// The number of chunks that glibc may map itself stays 0 where we check.
QUARL_EXPORT int mallopt(int option, int value) {
  return option == M_MMAP_MAX && !bypassed.everything ? 1 : libc_allocator.set_option(option, value);
}

QUARL_EXPORT void* mmap64(void* addr, size_t length, int prot, int flags, int fd, off64_t offset) {
  constexpr uint64_t kEnd = uint64_t{1} << 44;  // the kernel counts 4096-byte units in 32 bits
  const auto bytes = static_cast<uint64_t>(offset);
  if (bytes >= kEnd) {
    errno = EINVAL;
    return MAP_FAILED;
  }
  const quarl::glibc::BigOffset kept(fd, bytes);
  const auto low = static_cast<long>(static_cast<uint32_t>(bytes));
  auto hook = __mmap_hook;
  return hook != nullptr && !inside_checker() ? hook(addr, length, prot, flags, fd, low)
                                              : ext_mmap(addr, length, prot, flags, fd, low);
}

}  // extern "C"
