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
extern QUARL_EXPORT void* (*__malloc_hook)(size_t, const void*);
extern QUARL_EXPORT void (*__free_hook)(void*, const void*);
extern QUARL_EXPORT void* (*__realloc_hook)(void*, size_t, const void*);
extern QUARL_EXPORT void* (*__memalign_hook)(size_t, size_t, const void*);
extern QUARL_EXPORT void* (*__mmap_hook)(void*, size_t, int, int, int, long);
extern QUARL_EXPORT int (*__munmap_hook)(void*, size_t);
extern QUARL_EXPORT void (*__malloc_initialize_hook)(void);

// What free and realloc do when no hook is called. They know blocks that carry a header: after the hooks are gone such
// a block is released from its raw start; inside the checker (a signal handler of the application interrupted a hook)
// it is left alone, since the list of live blocks cannot be changed there.
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

inline bool is_mapped(void* raw) {
  return chunk_before(address_of(raw)).mapped();
}

// A chunk of its own mapping, made and unmade through the public mapping entries so that their hooks count it.
bool wants_mapping(size_t request);
void* map_chunk(size_t request);
void unmap_chunk(void* raw);
bool fits_mapping(void* raw, size_t request);  // the mapping of that request would be as large

// Bytes that the user of a raw block may use.
size_t raw_capacity(void* raw);

HeadedBlock find_headed(void* user);

}  // namespace quarl::glibc
