// SPDX-License-Identifier: Apache-2.0
// The allocators of the process besides the checker: the C library's own, from which all raw blocks come, and whoever
// else has taken the place of malloc and free.
//
//   in front   the program, or a library before ours in search order, defines them: its calls never reach us, but for
//              those of functions that it lacks
//   behind     a library between ours and the C library defines them: what it gives out by ways of its own (operator
//              new) may come back to our free
//
// All is found at the first call of any function here, on whatever thread makes it, before any constructor.
#pragma once

#include <cstddef>

#include "platform/address.h"

namespace quarl::glibc {

// The C library's allocator; in a program that is left alone, whoever comes next in search order. The members can be
// called at any time; they are not compared with null.
struct LibcAllocator {
  void* (*allocate)(size_t size);
  void (*release)(void* block);
  void* (*resize)(void* block, size_t size);
  void* (*allocate_aligned)(size_t alignment, size_t size);
  void* (*allocate_cleared)(size_t count, size_t size);
  size_t (*usable_size)(void* block);
  int (*set_option)(int option, int value);
};
extern LibcAllocator libc_allocator;

// Which of our entries do what would be done without us: all of them in a program that is left alone (QUARL_ONLY), or
// those that are called only because the one in front lacks them, while blocks are released by a function that is not
// ours. All of them until that is found out.
struct Bypassed {
  bool everything;  // malloc itself: no block is the checker's
  bool calloc, memalign, aligned_alloc, posix_memalign, valloc, pvalloc;
};
extern Bypassed bypassed;

// The realloc of an allocator in front of us; null: calls of realloc reach ours.
extern void* (*realloc_in_front)(void* block, size_t size);

// Some allocator stands behind us. Then every page from which we give out blocks is remembered.
extern bool others_behind;

// A block of an allocator behind us: it lies on no page of ours. Only to be asked when others_behind.
bool on_foreign_page(Address block);

// The pages of mapped chunks, to be told when others_behind.
void remember_pages(Address start, uint32_t size);
void forget_pages(Address start, uint32_t size);

void find_allocators();

}  // namespace quarl::glibc
