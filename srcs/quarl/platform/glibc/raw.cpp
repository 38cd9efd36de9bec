// The raw entries over glibc: its own allocator for ordinary chunks, mappings of our own for large ones.
#include <errno.h>
#include <malloc.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/checked_programs.h"
#include "platform/glibc/big_offset.h"
#include "platform/glibc/glibc.h"

extern "C" {
void* __libc_malloc(size_t size);
void __libc_free(void* ptr);
void* __libc_realloc(void* ptr, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

using namespace quarl::glibc;
using quarl::left_alone;

constinit bool prepared = false;

// glibc would map large chunks itself, unseen; switched off, bit 1 of a chunk word always means a mapping of ours.
void switch_off_own_mappings() {
  if (prepared || left_alone()) return;
  prepared = true;
  mallopt(M_MMAP_MAX, 0);
}

void* resize_by_copy(void* raw, size_t size) {
  void* moved = ext_malloc(size);
  if (moved == nullptr) return nullptr;
  const size_t old = raw_capacity(raw);
  memcpy(moved, raw, old < size ? old : size);
  ext_free(raw);
  return moved;
}

}  // namespace

extern "C" {

void* ext_malloc(size_t size) {
  return wants_mapping(size) ? map_chunk(size) : __libc_malloc(size);
}

void ext_free(void* ptr) {
  if (ptr == nullptr) return;
  if (is_mapped(ptr) && !left_alone()) {
    unmap_chunk(ptr);
  } else {
    __libc_free(ptr);
  }
}

void* ext_realloc(void* ptr, size_t size) {
  if (ptr == nullptr) return ext_malloc(size);
  if (size > kLargestRequest) {
    errno = ENOMEM;
    return nullptr;
  }
  const bool to_mapping = wants_mapping(size);
  if (!is_mapped(ptr) && !to_mapping) return __libc_realloc(ptr, size);
  if (left_alone()) return __libc_realloc(ptr, size);
  if (is_mapped(ptr) && to_mapping && fits_mapping(ptr, size)) return ptr;
  return resize_by_copy(ptr, size);
}

void* ext_memalign(size_t alignment, size_t size) {
  switch_off_own_mappings();
  return __libc_memalign(alignment, size);
}

void* ext_mmap(void* addr, size_t length, int prot, int flags, int fd, long offset) {
  constexpr unsigned kUnit = 4096;  // mmap2 counts the offset in these on every target
  const uint64_t bytes = full_offset(fd, offset);
  if (bytes % kUnit != 0) {
    errno = EINVAL;
    return MAP_FAILED;
  }
  return reinterpret_cast<void*>(
      syscall(SYS_mmap2, addr, length, prot, flags, fd, static_cast<unsigned long>(bytes / kUnit)));
}

int ext_munmap(void* addr, size_t length) {
  return static_cast<int>(syscall(SYS_munmap, addr, length));
}

int pthread_self_pid(void) {
  return static_cast<int>(syscall(SYS_gettid));
}

}  // extern "C"

void quarl::prepare_raw_entries() {
  switch_off_own_mappings();
}
