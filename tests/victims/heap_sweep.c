// SPDX-License-Identifier: Apache-2.0
// 60,000 allocations, resizes and releases of all kinds in a random order, the same in each run. Four threads, each
// with an arena of its own where the allocator has several, hand blocks to each other: what one has allocated another
// resizes or releases. Every block is filled; its content is looked at whenever it is touched, and all blocks' now and
// then.
#include <malloc.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "announce.h"

enum { kThreads = 4, kOperations = 60000, kSlots = 600, kBetweenChecks = 50 };

struct slot {
  pthread_mutex_t mutex;
  unsigned char* block;
  size_t size;
  unsigned char filled_with;
};

static struct slot slots[kSlots];
static unsigned long done[kThreads];

static uint32_t draw(uint32_t* state, uint32_t below) {
  *state = *state * 1664525 + 1013904223;
  return (uint32_t)(((uint64_t)*state * below) >> 32);
}

// Sizes of the thread's cache, of bins of all kinds, and now and then one that is a mapping of its own.
static size_t draw_size(uint32_t* state) {
  switch (draw(state, 16)) {
    case 0:
      return draw(state, 200000);
    case 1:
    case 2:
      return draw(state, 9000);
    case 3:
      return 4096 - 64 + draw(state, 80);
    default:
      return draw(state, 1040);
  }
}

static void expect(int holds, int status) {
  if (!holds) _exit(status);
}

static void expect_content(const unsigned char* block, size_t size, unsigned char value) {
  for (size_t i = 0; i < size; ++i) expect(block[i] == value, 3);
}

static void fill(struct slot* slot, void* block, size_t size, unsigned char value) {
  expect(block != NULL, 4);
  expect(malloc_usable_size(block) >= size, 5);
  memset(block, value, size);
  *slot = (struct slot){slot->mutex, block, size, value};
}

static void* allocate(uint32_t* state, size_t size) {
  void* block = NULL;
  const size_t alignment = (size_t)8 << draw(state, 11);
  switch (draw(state, 8)) {
    case 0:
      block = calloc(size / 7 + 1, 7);
      expect_content(block, size / 7 * 7 + 7, 0);
      return block;
    case 1:
      block = memalign(alignment, size);
      expect((uintptr_t)block % alignment == 0, 6);
      return block;
    case 2:
      expect(posix_memalign(&block, alignment, size) == 0 && (uintptr_t)block % alignment == 0, 7);
      return block;
    case 3:
      block = aligned_alloc(alignment, size);
      expect((uintptr_t)block % alignment == 0, 8);
      return block;
    case 4:
      block = valloc(size);
      expect((uintptr_t)block % 4096 == 0, 9);
      return block;
    case 5:
      return realloc(NULL, size);
    default:
      return malloc(size);
  }
}

static void operate(struct slot* slot, uint32_t* state) {
  const size_t size = draw_size(state) + 1;
  const unsigned char value = (unsigned char)draw(state, 256);
  if (slot->block == NULL) {
    fill(slot, allocate(state, size), size, value);
    return;
  }
  expect_content(slot->block, slot->size, slot->filled_with);
  if (draw(state, 3) == 0) {
    unsigned char* moved = realloc(slot->block, size);
    expect(moved != NULL, 10);
    expect_content(moved, size < slot->size ? size : slot->size, slot->filled_with);
    fill(slot, moved, size, value);
    return;
  }
  free(slot->block);
  slot->block = NULL;
}

static void* sweep(void* number) {
  const uintptr_t thread = (uintptr_t)number;
  uint32_t state = (uint32_t)thread * 2654435761U + 1;
  for (int i = 0; i < kOperations / kThreads; ++i) {
    struct slot* slot = &slots[draw(&state, kSlots)];
    pthread_mutex_lock(&slot->mutex);
    operate(slot, &state);
    pthread_mutex_unlock(&slot->mutex);
    ++done[thread];
    if (i % kBetweenChecks == 0 && quarl_check_mem) quarl_check_mem();
  }
  return NULL;
}

int main(void) {
  pthread_t threads[kThreads];
  for (int i = 0; i < kSlots; ++i) pthread_mutex_init(&slots[i].mutex, NULL);
  for (uintptr_t i = 0; i < kThreads; ++i) expect(pthread_create(&threads[i], NULL, sweep, (void*)i) == 0, 11);
  unsigned long operations = 0;
  for (int i = 0; i < kThreads; ++i) {
    pthread_join(threads[i], NULL);
    operations += done[i];
  }
  for (int i = 0; i < kSlots; ++i) {
    if (slots[i].block != NULL) expect_content(slots[i].block, slots[i].size, slots[i].filled_with);
    free(slots[i].block);
  }
  announce("checked", (void*)operations);
  return 0;
}
