// SPDX-License-Identifier: Apache-2.0
// Stands in front of whatever allocator comes next and calls on: what profilers and tracers do. It lacks the aligned
// family and reallocarray.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>
#include <string.h>

#include "own.h"

// Before the next one is known dlsym may allocate.
static char early[4096] __attribute__((aligned(16)));
static size_t early_used;

static void* allocate_early(size_t size) {
  void* block = early + early_used;
  early_used += (size + 15) & ~(size_t)15;
  return early_used <= sizeof early ? block : NULL;
}
static int is_early(const char* block) {
  return block >= early && block < early + sizeof early;
}

static void* next(const char* name) {
  static int looking;
  if (looking) return NULL;
  looking = 1;
  void* found = dlsym(RTLD_NEXT, name);
  looking = 0;
  return found;
}

#define NEXT(result, name, ...)              \
  static result (*next_##name)(__VA_ARGS__); \
  if (next_##name == NULL) *(void**)&next_##name = next(#name)

EXPORT void* malloc(size_t size) {
  NEXT(void*, malloc, size_t);
  return next_malloc != NULL ? next_malloc(size) : allocate_early(size);
}
EXPORT void* calloc(size_t count, size_t size) {
  NEXT(void*, calloc, size_t, size_t);
  return next_calloc != NULL ? next_calloc(count, size) : allocate_early(count * size);
}
EXPORT void* realloc(void* block, size_t size) {
  NEXT(void*, realloc, void*, size_t);
  if (!is_early(block)) return next_realloc(block, size);
  void* moved = malloc(size);
  return moved != NULL ? memcpy(moved, block, size) : NULL;
}
EXPORT void free(void* block) {
  NEXT(void, free, void*);
  if (!is_early(block)) next_free(block);
}
