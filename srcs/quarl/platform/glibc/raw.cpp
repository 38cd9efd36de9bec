// SPDX-License-Identifier: Apache-2.0
// The raw entries over glibc: its own allocator for ordinary chunks, mappings of our own for large ones.
#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/confinement.h"
#include "platform/environment.h"
#include "platform/glibc/allocators.h"
#include "platform/glibc/big_offset.h"
#include "platform/glibc/contract.h"
#include "platform/glibc/glibc.h"
#include "platform/glibc/mapped_book.h"
#include "platform/glibc/regions.h"
#include "platform/malloc_header.h"
#include "platform/system_call.h"

namespace {

using namespace quarl;
using namespace quarl::glibc;

constinit bool prepared = false;

// glibc would map large chunks itself, unseen.
void switch_off_own_mappings() {
  if (prepared || bypassed.everything) return;
  prepared = true;
  libc_allocator.set_option(M_MMAP_MAX, 0);
}

bool libc_mapped(void* raw) {
  return raw != nullptr && chunk_before(address_of(raw)).mapped();
}

// What is kept of large blocks may be what others find no room for: true when it is worth another try.
[[gnu::cold, gnu::noinline]] bool make_room() {
  return drop_kept_regions();
}

// Where its arenas have no room, glibc maps a chunk itself all the same. Then it gets it back, and the block becomes a
// mapping of ours.
[[gnu::cold, gnu::noinline]] void* map_instead(void* raw, size_t alignment, size_t size) {
  libc_allocator.release(raw);
  return map_chunk(alignment, size);
}

[[gnu::cold, gnu::noinline]] void* map_copy_instead(void* raw, size_t size) {
  void* moved = map_chunk(0, size);
  if (moved == nullptr) return raw;  // its contents exist nowhere else
  memcpy(moved, raw, size);
  libc_allocator.release(raw);
  return moved;
}

void* resize_by_copy(void* raw, size_t size) {
  void* moved = ext_malloc(size);
  if (moved == nullptr) return nullptr;
  const size_t old = raw_capacity(raw);
  memcpy(moved, raw, old < size ? old : size);
  ext_free(raw);
  return moved;
}

[[gnu::cold, gnu::noinline]] void* resize_mapped(const MappedChunk* chunk, size_t size) {
  // Behind a filter of system calls by a copy: mremap is another call than those that allocators need.
  void* resized = wants_mapping(size) && !confined() ? resize_chunk(chunk, size) : nullptr;
  return resized != nullptr ? resized : resize_by_copy(pointer_to(chunk->raw), size);
}

bool wants_mapping_with(size_t alignment, size_t size) {
  return wants_mapping(size) || wants_mapping(alignment) || wants_mapping(alignment + size);
}

// Until 2.33 the allocator itself has a check, which puts a byte behind each block.
bool checks_its_blocks() {
  if (glibc::libc_minor_version() >= 34) return false;
  const char* check = environment("MALLOC_CHECK_");
  const char* tunables = environment("GLIBC_TUNABLES");
  return (check != nullptr && strpbrk(check, "123456789") != nullptr) ||
         (tunables != nullptr && strstr(tunables, "glibc.malloc.check=") != nullptr);
}

// glibc aligns to what its compiler's largest type wants, on i686 since 2.26 only.
uint32_t glibc_alignment() {
  return glibc::libc_minor_version() >= 26 ? glibc::kLibcAlignment : 8;
}

}  // namespace

extern "C" {

void* ext_malloc(size_t size) {
  if (wants_mapping(size)) return map_chunk(0, size);
  void* raw = libc_allocator.allocate(size);
  if (__builtin_expect(raw == nullptr, 0) && make_room()) raw = libc_allocator.allocate(size);
  return __builtin_expect(libc_mapped(raw), 0) ? map_instead(raw, 0, size) : raw;
}

void ext_free(void* ptr) {
  if (ptr == nullptr) return;
  const MappedChunk* chunk = mapped_book.find(address_of(ptr));
  if (__builtin_expect(chunk != nullptr, 0)) {
    unmap_chunk(chunk);
  } else {
    libc_allocator.release(ptr);
  }
}

void* ext_realloc(void* ptr, size_t size) {
  if (ptr == nullptr) return ext_malloc(size);
  if (size > kLargestRequest) {
    errno = ENOMEM;
    return nullptr;
  }
  const MappedChunk* chunk = mapped_book.find(address_of(ptr));
  if (chunk != nullptr) return resize_mapped(chunk, size);
  if (of_other_allocator(ptr)) return libc_allocator.resize(ptr, size);
  if (wants_mapping(size)) return resize_by_copy(ptr, size);
  void* raw = libc_allocator.resize(ptr, size);
  if (__builtin_expect(raw == nullptr, 0) && size != 0 && make_room()) raw = libc_allocator.resize(ptr, size);
  return libc_mapped(raw) ? map_copy_instead(raw, size) : raw;
}

void* ext_memalign(size_t alignment, size_t size) {
  switch_off_own_mappings();
  if (alignment > 8 && wants_mapping_with(alignment, size)) return map_chunk(alignment, size);
  void* raw = libc_allocator.allocate_aligned(alignment, size);
  if (__builtin_expect(raw == nullptr, 0) && make_room()) raw = libc_allocator.allocate_aligned(alignment, size);
  return libc_mapped(raw) ? map_instead(raw, alignment, size) : raw;
}

void* ext_mmap(void* addr, size_t length, int prot, int flags, int fd, long offset) {
  if (told_mapping(addr)) return addr;
  if ((flags & MAP_FIXED) != 0) leave_to_application({address_of(addr), round_up(length, kPage)});
  constexpr unsigned kUnit = 4096;  // mmap2 counts the offset in these on every target
  const uint64_t bytes = full_offset(fd, offset);
  if (bytes % kUnit != 0) {
    errno = EINVAL;
    return MAP_FAILED;
  }
  const auto map = [=] {
    return system_call(SYS_mmap2, addr, length, prot, flags, fd, static_cast<long>(bytes / kUnit));
  };
  long mapped = map();
  if (mapped == -1 && errno == ENOMEM && make_room()) mapped = map();
  return reinterpret_cast<void*>(mapped);
}

int ext_munmap(void* addr, size_t length) {
  if (told_mapping(addr)) return 0;
  leave_to_application({address_of(addr), round_up(length, kPage)});
  return static_cast<int>(system_call(SYS_munmap, addr, length));
}

// Without a call behind a filter: the C library tells a lock who has it.
int pthread_self_pid(void) {
  if (!confined()) return static_cast<int>(system_call(SYS_gettid));
  pthread_mutex_t own = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
  pthread_mutex_lock(&own);
  const int task = own.__data.__owner;
  pthread_mutex_unlock(&own);
  return task;
}

}  // extern "C"

namespace quarl {

constinit bool other_allocators = false;

bool of_other_allocator(void* ptr) {
  return other_allocators && glibc::on_foreign_page(address_of(ptr));
}

constinit uint32_t raw_alignment = 8;
constinit uint32_t allocator_bytes = 0;

void prepare_raw_entries() {
  glibc::find_error_texts();
  glibc::find_allocators();
  other_allocators = glibc::others_behind;
  switch_off_own_mappings();
  glibc::choose_contract();
  raw_alignment = glibc_alignment();
  allocator_bytes = checks_its_blocks() ? 1 : 0;
}

void settle_hooks() {
  if (glibc::bypassed.memalign) __memalign_hook = nullptr;
  if (!glibc::bypassed.everything) return;
  __malloc_hook = nullptr;
  __free_hook = nullptr;
  __realloc_hook = nullptr;
}

}  // namespace quarl
