// SPDX-License-Identifier: Apache-2.0
// An allocator that takes the place of the C library's, whole but for reallocarray; with JUST_THE_PAIR only malloc and
// free. Like others it ends the program over a block that it does not know; JUST_THE_PAIR hands such a block to the C
// library, from which calloc's come.
#include <errno.h>
#include <malloc.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "own.h"

enum { kArena = 96 << 20, kClasses = 32, kHead = 16, kOwn = 0x0B10C };

struct Block {
  size_t size;  // bytes behind the head
  unsigned mark;
  struct Block* start;  // itself, or what it was cut from for an alignment
  struct Block* next;
};

static char arena[kArena] __attribute__((aligned(4096)));
static char* unused = arena;
static struct Block* released[kClasses];
static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

static int class_of(size_t size) {
  return 32 - __builtin_clz(size < 64 ? 64 : (unsigned)size - 1);
}

static struct Block* block_of(void* user) {
  struct Block* block = (struct Block*)((char*)user - kHead);
  return (char*)user > arena && (char*)user < arena + kArena && block->mark == kOwn ? block : NULL;
}

static void* take(size_t size) {
  if (size > kArena) return NULL;
  int class = class_of(size);
  size_t bytes = (size_t)1 << class;
  pthread_mutex_lock(&mutex);
  struct Block* block = released[class];
  if (block != NULL) {
    released[class] = block->next;
  } else if (unused + kHead + bytes <= arena + kArena) {
    block = (struct Block*)unused;
    unused += kHead + bytes;
  }
  pthread_mutex_unlock(&mutex);
  if (block == NULL) return errno = ENOMEM, NULL;
  *block = (struct Block){.size = bytes, .mark = kOwn, .start = block};
  return (char*)block + kHead;
}

void* own_allocate(size_t size) {
  return take(size);
}

EXPORT void* malloc(size_t size) {
  return take(size);
}

static void give_back(struct Block* block) {
  int class = class_of(block->size);
  pthread_mutex_lock(&mutex);
  block->next = released[class];
  released[class] = block;
  pthread_mutex_unlock(&mutex);
}

EXPORT void free(void* user) {
  if (user == NULL) return;
  struct Block* block = block_of(user);
#ifdef JUST_THE_PAIR
  if (block == NULL) return __libc_free(user);
#endif
  if (block == NULL) abort();
  block->mark = 0;
  give_back(block->start);
}

#ifndef JUST_THE_PAIR

EXPORT void* calloc(size_t count, size_t size) {
  void* block = take(count * size);
  return block != NULL ? memset(block, 0, count * size) : NULL;
}

EXPORT size_t malloc_usable_size(void* user) {
  if (user != NULL && block_of(user) == NULL) abort();
  return user != NULL ? block_of(user)->size : 0;
}

EXPORT void* realloc(void* user, size_t size) {
  void* moved = take(size);
  if (user == NULL || moved == NULL) return moved;
  size_t old = malloc_usable_size(user);
  memcpy(moved, user, old < size ? old : size);
  free(user);
  return moved;
}

EXPORT void* memalign(size_t alignment, size_t size) {
  char* block = take(size + alignment + kHead);
  if (block == NULL || alignment <= kHead) return block;
  char* user = (char*)(((uintptr_t)block + kHead + alignment - 1) & ~(alignment - 1));
  *(struct Block*)(user - kHead) = (struct Block){.size = size, .mark = kOwn, .start = block_of(block)};
  return user;
}
EXPORT void* aligned_alloc(size_t alignment, size_t size) {
  return memalign(alignment, size);
}
EXPORT int posix_memalign(void** out, size_t alignment, size_t size) {
  *out = memalign(alignment, size);
  return *out != NULL ? 0 : ENOMEM;
}
EXPORT void* valloc(size_t size) {
  return memalign(4096, size);
}
EXPORT void* pvalloc(size_t size) {
  return memalign(4096, (size + 4095) & ~(size_t)4095);
}

#endif
