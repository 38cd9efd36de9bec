// SPDX-License-Identifier: Apache-2.0
#include "platform/glibc/allocators.h"

#include <sched.h>
#include <stdlib.h>
#include <string.h>

#include "platform/checked_programs.h"
#include "platform/glibc/loaded_symbols.h"
#include "platform/glibc/page_set.h"
#include "platform/glibc/program_break.h"
#include "platform/malloc_header.h"
#include "platform/print.h"

namespace quarl::glibc {
namespace {

// What the names lead to: first the makers of this table, which look the functions up and call on.
LibcAllocator found{};
LibcAllocator behind{};
constinit PageSet our_pages;
constinit bool others_in_front = false;

constexpr Bypassed kAll{true, true, true, true, true, true, true};

template <typename Function>
void look_up(Function* function, const char* name, const char* other_name) {
  void* address = libc_symbol(name);
  if (address == nullptr) address = libc_symbol(other_name);
  memcpy(function, &address, sizeof address);
}

template <typename Function>
void look_behind(Function* function, const char* name) {
  void* address = next_function(name);
  memcpy(function, &address, sizeof address);
}

void look_up_libc() {
  look_up(&found.allocate, "__libc_malloc", "malloc");
  look_up(&found.release, "__libc_free", "free");
  look_up(&found.resize, "__libc_realloc", "realloc");
  look_up(&found.allocate_aligned, "__libc_memalign", "memalign");
  look_up(&found.allocate_cleared, "__libc_calloc", "calloc");
  look_up(&found.usable_size, "malloc_usable_size", "malloc_usable_size");
  look_up(&found.set_option, "mallopt", "__libc_mallopt");
  if (found.allocate != nullptr && found.release != nullptr && found.resize != nullptr) return;
  print(kStderr, "the C library's allocator is not found\n");
  abort();
}

void look_in_front() {
  const bool release_ours = first_function("free").ours;
  const FoundFunction resize = first_function("realloc");
  if (!resize.ours) memcpy(&realloc_in_front, &resize.address, sizeof resize.address);
  bypassed = {};
  if (release_ours && resize.ours) return;
  others_in_front = true;
  bypassed = {first_function("malloc").ours,         first_function("calloc").ours,
              first_function("memalign").ours,       first_function("aligned_alloc").ours,
              first_function("posix_memalign").ours, first_function("valloc").ours,
              first_function("pvalloc").ours};
}

// As if this library were not there.
void look_past_us() {
  look_behind(&found.allocate, "malloc");
  look_behind(&found.release, "free");
  look_behind(&found.resize, "realloc");
  look_behind(&found.allocate_aligned, "memalign");
  look_behind(&found.allocate_cleared, "calloc");
  look_behind(&found.usable_size, "malloc_usable_size");
  look_behind(&found.set_option, "mallopt");
  bypassed = kAll;
}

// While there is somebody else, each block of the C library's passes here: its pages are remembered, and nobody moves
// the program break meanwhile.

void* remember(void* block) {
  if (block == nullptr) return nullptr;
  const Address start = address_of(block);
  our_pages.add(start, start + static_cast<uint32_t>(found.usable_size(block)));
  return block;
}

void* allocate_noted(size_t size) {
  const BreakLock lock;
  return remember(found.allocate(size));
}
void* resize_noted(void* block, size_t size) {
  if (block != nullptr && on_foreign_page(address_of(block))) return behind.resize(block, size);
  const BreakLock lock;
  return remember(found.resize(block, size));
}
void* allocate_aligned_noted(size_t alignment, size_t size) {
  const BreakLock lock;
  return remember(found.allocate_aligned(alignment, size));
}
void* allocate_cleared_noted(size_t count, size_t size) {
  const BreakLock lock;
  return remember(found.allocate_cleared(count, size));
}
void release_by_page(void* block) {
  if (others_behind && block != nullptr && on_foreign_page(address_of(block))) return behind.release(block);
  const BreakLock lock;
  found.release(block);
}
size_t usable_size_by_page(void* block) {
  return (on_foreign_page(address_of(block)) ? behind : found).usable_size(block);
}

void look_behind_us() {
  behind = found;
  void* next = next_function("free");
  if (next == nullptr || next == libc_symbol("free")) return;
  look_behind(&behind.release, "free");
  look_behind(&behind.resize, "realloc");
  look_behind(&behind.usable_size, "malloc_usable_size");
  others_behind = true;
  // Further arenas would be unmapped again, and their pages become somebody else's.
  found.set_option(M_ARENA_MAX, 1);
}

void publish() {
  LibcAllocator table = found;
  if (others_behind || others_in_front) {
    table.allocate = allocate_noted;
    table.release = release_by_page;
    table.resize = resize_noted;
    table.allocate_aligned = allocate_aligned_noted;
    table.allocate_cleared = allocate_cleared_noted;
    table.usable_size = usable_size_by_page;
  }
  libc_allocator = table;
}

// The first members of the table.

void* first_allocate(size_t size) {
  find_allocators();
  return libc_allocator.allocate(size);
}
void first_release(void* block) {
  find_allocators();
  libc_allocator.release(block);
}
void* first_resize(void* block, size_t size) {
  find_allocators();
  return libc_allocator.resize(block, size);
}
void* first_allocate_aligned(size_t alignment, size_t size) {
  find_allocators();
  return libc_allocator.allocate_aligned(alignment, size);
}
void* first_allocate_cleared(size_t count, size_t size) {
  find_allocators();
  return libc_allocator.allocate_cleared(count, size);
}
size_t first_usable_size(void* block) {
  find_allocators();
  return libc_allocator.usable_size(block);
}
int first_set_option(int option, int value) {
  find_allocators();
  return libc_allocator.set_option(option, value);
}

}  // namespace

constinit LibcAllocator libc_allocator{first_allocate,         first_release,          first_resize,
                                       first_allocate_aligned, first_allocate_cleared, first_usable_size,
                                       first_set_option};
constinit Bypassed bypassed = kAll;
void* (*realloc_in_front)(void*, size_t) = nullptr;
constinit bool others_behind = false;

bool on_foreign_page(Address block) {
  return !our_pages.holds(block);
}
void remember_pages(Address start, uint32_t size) {
  our_pages.add(start, start + size);
}
void forget_pages(Address start, uint32_t size) {
  our_pages.remove(start, start + size);
}

void find_allocators() {
  enum : uint32_t { kUnknown, kLooking, kKnown };
  static constinit uint32_t state = kUnknown;
  if (__atomic_load_n(&state, __ATOMIC_ACQUIRE) == kKnown) return;
  uint32_t seen = kUnknown;
  if (!__atomic_compare_exchange_n(&state, &seen, kLooking, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
    // Another thread looks: what it has found by now is not all.
    while (__atomic_load_n(&state, __ATOMIC_ACQUIRE) != kKnown) sched_yield();
    return;
  }
  look_up_libc();
  look_in_front();
  if (left_alone()) {
    look_past_us();
  } else {
    look_behind_us();
  }
  publish();
  __atomic_store_n(&state, kKnown, __ATOMIC_RELEASE);
}

}  // namespace quarl::glibc
