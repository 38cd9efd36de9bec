// SPDX-License-Identifier: Apache-2.0
// The layer: a C library with allocation hooks, made of one without. Its public entries take the place of the C
// library's in the whole process.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/annotations.h"
#include "platform/chunk.h"
#include "platform/libc_hooks.h"
#include "platform/thread_cache.h"

extern "C" {
extern void* (*__malloc_hook)(size_t, const void*);
extern void (*__free_hook)(void*, const void*);
extern void* (*__realloc_hook)(void*, size_t, const void*);
extern void* (*__memalign_hook)(size_t, size_t, const void*);
extern void* (*__mmap_hook)(void*, size_t, int, int, int, long);
extern int (*__munmap_hook)(void*, size_t);
extern void (*__malloc_initialize_hook)(void);

// What the entries do when no hook is called: before the hooks are there and after they are gone, and inside the
// checker (a signal handler of the application interrupted a hook). Blocks given out here have no header; they are
// remembered. Blocks with one: after the hooks are gone such a block is released from its raw start; inside the checker
// it is left alone, since the list of live blocks cannot be changed there.
void* quarl_layer_allocate(size_t size);
void* quarl_layer_allocate_aligned(size_t alignment, size_t size);
void quarl_layer_release(void* ptr);
void* quarl_layer_resize(void* ptr, size_t size);
}

namespace quarl::glibc {

// Bytes of chunk from which on a block is a mapping of its own.
inline constexpr size_t kMappedChunk = 128 * 1024;
inline constexpr size_t kLargestRequest = 0x7FFF0000;

inline bool inside_checker() {
  return thread_cache().hook_depth != 0;
}

struct MappedChunk;

// Chunks that are mappings of their own, made and unmade through the public mapping entries so that their hooks count
// them. The alignment is a power of two, or 0 for what every block has.
bool wants_mapping(size_t request);
[[gnu::noinline]] void* map_chunk(size_t alignment, size_t request);
[[gnu::cold, gnu::noinline]] void unmap_chunk(const MappedChunk* chunk);
void* resize_chunk(const MappedChunk* chunk, size_t request);  // null: it cannot be had without a copy

// Once, at the start: they may be wanted in a signal handler.
void find_error_texts();

// The public mapping entries are being told of the mapping there; it is there, or not gone yet, already.
bool told_mapping(const void* addr);

// Bytes that the user of a raw block may use; 0 for a pointer that cannot be one.
size_t raw_capacity(void* raw);

HeadedBlock find_headed(void* user);

}  // namespace quarl::glibc
