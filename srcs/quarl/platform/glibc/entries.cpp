// The hook variables, and the public entries that go through the hook of another operation.
#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/glibc/big_offset.h"
#include "platform/glibc/glibc.h"

using quarl::glibc::inside_checker;

extern "C" {

void* (*__malloc_hook)(size_t, const void*) = nullptr;
void (*__free_hook)(void*, const void*) = nullptr;
void* (*__realloc_hook)(void*, size_t, const void*) = nullptr;
void* (*__memalign_hook)(size_t, size_t, const void*) = nullptr;
void* (*__mmap_hook)(void*, size_t, int, int, int, long) = nullptr;
int (*__munmap_hook)(void*, size_t) = nullptr;
void (*__malloc_initialize_hook)(void) = nullptr;

}  // extern "C"

namespace {

// Inlined into the entry, so that a trace reads: the entry, then its caller.
[[gnu::always_inline]] inline void* hooked_malloc(size_t size) {
  auto hook = __malloc_hook;
  return hook != nullptr && !inside_checker() ? hook(size, nullptr) : ext_malloc(size);
}

[[gnu::always_inline]] inline void* hooked_memalign(size_t alignment, size_t size) {
  auto hook = __memalign_hook;
  return hook != nullptr && !inside_checker() ? hook(alignment, size, nullptr) : ext_memalign(alignment, size);
}

// A chunk that is a mapping of its own is always a fresh one: touching its pages only to clear them again would cost
// the application its memory.
bool cleared_by_kernel(void* block) {
  void* raw = quarl::glibc::find_headed(block).raw;
  return quarl::glibc::is_mapped(raw != nullptr ? raw : block);
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
  void* block = hooked_malloc(bytes);
  if (block != nullptr && !cleared_by_kernel(block)) memset(block, 0, bytes);
  return block;
}

QUARL_EXPORT void* reallocarray(void* ptr, size_t count, size_t size) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) {
    errno = ENOMEM;
    return nullptr;
  }
  auto hook = __realloc_hook;
  return hook != nullptr && !inside_checker() ? hook(ptr, bytes, nullptr) : quarl_layer_resize(ptr, bytes);
}

QUARL_EXPORT void* aligned_alloc(size_t alignment, size_t size) {
  if (!power_of_two(alignment)) {
    errno = EINVAL;
    return nullptr;
  }
  return hooked_memalign(alignment, size);
}

QUARL_EXPORT int posix_memalign(void** out, size_t alignment, size_t size) {
  if (!power_of_two(alignment) || alignment % sizeof(void*) != 0) return EINVAL;
  const int error = errno;
  void* block = hooked_memalign(alignment, size);
  errno = error;
  if (block == nullptr) return ENOMEM;
  *out = block;
  return 0;
}

QUARL_EXPORT void* valloc(size_t size) {
  return hooked_memalign(static_cast<size_t>(getpagesize()), size);
}

QUARL_EXPORT void* pvalloc(size_t size) {
  const auto page = static_cast<size_t>(getpagesize());
  if (size > SIZE_MAX - page) {
    errno = ENOMEM;
    return nullptr;
  }
  return hooked_memalign(page, (size + page - 1) & ~(page - 1));
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
