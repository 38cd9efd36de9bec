// SPDX-License-Identifier: Apache-2.0
#include "damage.h"

#include <malloc.h>
#include <stdlib.h>
#include <string.h>

struct Block blocks[kMostBlocks];
int block_count;
char* stale[kMostStale];
int stale_count;

// Where the raw block of a sound block begins, by the flags in its header.
static char* raw_of(char* p) {
  const uint32_t* word = (const uint32_t*)p;
  if ((word[-1] & ~3u) != (uint32_t)(uintptr_t)p) return NULL;
  uint32_t lowest = 16 + (word[-1] & 2 ? 4 : 0) + (word[-3] & 1 ? 8 : 0);
  uint32_t info = 0;
  if (word[-1] & 1) {
    lowest += 4;
    info = *(const uint32_t*)(p - lowest);
  }
  if (word[-2] & 1) lowest += 4 * (info & 0xFF);
  uint32_t align = 1u << (info >> 16 & 0xFF ? info >> 16 & 0xFF : 3);
  return p - ((lowest + align - 1) & ~(align - 1));
}

void take(struct Block* block, char* p, uint32_t size) {
  *block = (struct Block){p, size, p ? raw_of(p) : NULL, p != NULL};
  if (p) memset(p, 0x5A, size < 600 ? size : 600);
}

void remember_stale(char* p) {
  stale[stale_count < kMostStale ? stale_count++ : (int)draw(kMostStale)] = p;
}

void give_up(struct Block* block) {
  block->live = 0;
  remember_stale(block->p);
  free(block->p);
}

static uint32_t draw_size(void) {
  uint32_t kind = draw(100);
  return kind < 70 ? 1 + draw(300) : kind < 90 ? 1 + draw(5000) : kind < 97 ? draw(40000) + 1 : 131000 + draw(200000);
}

static void make(struct Block* block) {
  uint32_t size = draw_size();
  uint32_t kind = draw(10);
  if (kind < 6) {
    take(block, malloc(size), size);
  } else if (kind < 8) {
    char* first = malloc(1 + draw(300));
    if (draw(2)) free(malloc(64));
    char* p = realloc(first, size);
    if (p && p != first) remember_stale(first);
    take(block, p, size);
  } else if (kind < 9) {
    take(block, memalign(8u << draw(10), size), size);
  } else {
    take(block, calloc(1, size), size);
  }
}

void build_heap(void) {
  block_count = 4 + (int)draw(kMostBlocks - 4);
  if (draw(3) == 0) block_count = 2 + block_count / 16;
  for (int i = 0; i < block_count; ++i) make(&blocks[i]);
  uint32_t released = draw(50);  // of a hundred
  for (int i = 0; i < block_count; ++i) {
    if (blocks[i].live && draw(100) < released) give_up(&blocks[i]);
  }
}

struct Block* any_live(void) {
  int from = (int)draw((uint32_t)block_count);
  for (int i = 0; i < block_count; ++i) {
    struct Block* block = &blocks[(from + i) % block_count];
    if (block->live) return block;
  }
  return NULL;
}
