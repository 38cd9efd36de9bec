// SPDX-License-Identifier: Apache-2.0
// The faults that a program plants in its heap: bytes, words, runs of text and links, where they hurt.
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "damage.h"

enum { kChunkWord = 4 };

static struct Story* story;

// The chunk that the bytes belong to, when all of them are a live block's: the C library then finds its own words
// whole.
static int inside_a_block(const char* at, size_t length) {
  for (int i = 0; i < block_count; ++i) {
    const struct Block* block = &blocks[i];
    if (!block->live || !block->raw) continue;
    uint32_t chunk = *(const uint32_t*)(block->raw - kChunkWord);
    uint32_t usable = (chunk & ~7u) - (chunk & 2 ? 8 : 4);
    if (at >= block->raw && at + length <= block->raw + usable) return 1;
  }
  return 0;
}

static int is_mapped(const char* at, size_t length) {
  uintptr_t page = (uintptr_t)getpagesize();
  unsigned char resident;
  for (uintptr_t a = (uintptr_t)at & ~(page - 1); a < (uintptr_t)at + length; a += page) {
    if (mincore((void*)a, page, &resident) != 0) return 0;
  }
  return 1;
}

// Nothing is written outside the heap: that would be the program's own end, not the checker's.
static int exists(const char* at, size_t length) {
  return at + length <= (char*)sbrk(0) && is_mapped(at, length);
}

// A chunk whose word was overwritten before may claim more than there is.
static void put(char* at, const void* bytes, size_t length) {
  if (!inside_a_block(at, length)) {
    if (!exists(at, length)) return;
    story->allocator_hit = 1;
  } else if (!is_mapped(at, length)) {
    return;
  }
  memcpy(at, bytes, length);
}

static uint32_t address_of(const void* p) {
  return (uint32_t)(uintptr_t)p;
}

// Where a damaged link may lead.
static uint32_t draw_target(const struct Block* block) {
  static int writable;
  const struct Block* other = &blocks[draw((uint32_t)block_count)];
  uint32_t p = address_of(block->p), heap = address_of(other->p);
  switch (draw(18)) {
    case 0:
      return 0;
    case 1:
      return p;
    case 2:
      return address_of(blocks[0].p);
    case 3:
    case 4:
      return heap;
    case 5:
      return heap + 4;
    case 6:
      return heap + 8 * (1 + draw(8));
    case 7:
      return stale_count ? address_of(stale[draw((uint32_t)stale_count)]) : 8;
    case 8:
      return 8 * draw(1000);
    case 9:
      return 0xFFFFFFF8u - 8 * draw(4);
    case 10:
      return address_of(&p) & ~7u;
    case 11:
      return address_of(&draw_target) & ~7u;
    case 12:
      return address_of(&writable) & ~7u;
    case 13:
      return (heap & ~0xFFFu) + 8 * draw(4);
    case 14:
      return ((heap + 0x1000 * draw(64)) & ~0xFFFu) + 8;
    case 15:
      return draw_word();
    case 16:
      return draw_word() & ~7u;
    default:
      return 0xD8675309;
  }
}

static uint32_t draw_value(const struct Block* block) {
  switch (draw(8)) {
    case 0:
      return draw_word();
    case 1:
      return 0;
    case 2:
      return 0xFFFFFFFFu;
    case 3:
      return draw(1 << (1 + draw(20)));
    case 4:
      return 0x41414141u;
    case 5:
      return 1u << draw(32);
    default:
      return draw_target(block);
  }
}

static void overwrite_word(char* at, uint32_t value) {
  put(at, &value, 4);
}

static void overwrite_link(const struct Block* block) {
  char* at = block->p - 4 * (1 + draw(3));
  uint32_t flags = draw(3) ? *(const uint32_t*)at & 3 : draw(4);
  overwrite_word(at, (draw_target(block) & ~3u) | flags);
}

// From a place below or behind the block upwards, as an overrun or a stray copy leaves it.
static void overwrite_run(const struct Block* block) {
  char text[512];
  uint32_t length = 1 + draw(1u << (1 + draw(9)));
  uint8_t letter = (uint8_t)draw(256);
  for (uint32_t i = 0; i < length; ++i) text[i] = (char)(draw(3) ? letter : draw(256));
  if (draw(2)) memset(text, letter, length);
  char* at = draw(2) ? block->p + block->size - draw(8) : block->p - draw(100);
  if (draw(3) == 0) at = block->p - 4 - length;  // up to the last word of the header, which stays
  put(at, text, length);
}

// The word that says how deep the trace is, what made the block and how it is aligned.
static void overwrite_info(const struct Block* block) {
  const uint32_t* word = (const uint32_t*)block->p;
  if (!(word[-1] & 1)) return;
  char* at = block->p - 20 - (word[-1] & 2 ? 4 : 0) - (word[-3] & 1 ? 8 : 0);
  uint32_t info = *(const uint32_t*)at;
  switch (draw(4)) {
    case 0:
      info = (info & ~0xFFu) | draw(256);
      break;
    case 1:
      info = (info & ~0xFF0000u) | draw(256) << 16;
      break;
    case 2:
      info = (info & ~0xFF0F00u) | (draw(2) ? 4u : 1u) << 8 | draw(33) << 16;
      break;
    default:
      info = draw_word();
  }
  overwrite_word(at, info);
}

// Flags, size and chunk word that fit each other, but not the block.
static void forge(const struct Block* block) {
  uint32_t size = draw(2) ? draw_word() : block->size + draw(1 << 20);
  uint32_t offset = (uint32_t)(block->p - block->raw);
  overwrite_word(block->p - 16, size);
  overwrite_word(block->raw - 4, ((size + offset + 15) & ~7u) | 1);
}

static void overwrite_released(void) {
  if (!stale_count) return;
  char* p = stale[draw((uint32_t)stale_count)];
  char* at = p - draw(40) * 4 + draw(2) * 64;
  uint32_t value = draw_value(&blocks[0]);
  if (draw(3) == 0) at = p - 4, value = address_of(p) | draw(4);
  if (exists(at, 4)) overwrite_word((char*)((uintptr_t)at & ~3ul), value);
}

static void overwrite_once(const struct Block* block) {
  uint8_t byte = (uint8_t)draw(256);
  switch (draw(16)) {
    case 0:
    case 1:
      put(block->p - 1 - draw(72), &byte, 1);
      break;
    case 2:
    case 3:
      overwrite_word(block->p - 4 * (1 + draw(18)), draw_value(block));
      break;
    case 4:
    case 5:
      overwrite_run(block);
      break;
    case 6:
    case 7:
    case 8:
    case 9:
      overwrite_link(block);
      break;
    case 10:
      put(block->p + block->size + draw(4), &byte, 1);
      break;
    case 11:
      overwrite_word(block->p - 16, draw(2) ? draw_value(block) : block->size + draw(64) - 32);
      break;
    case 12:
      overwrite_info(block);
      break;
    case 13:
      overwrite_word(block->raw - 4, draw(2) ? draw_value(block) : *(uint32_t*)(block->raw - 4) ^ 1u << draw(20));
      break;
    case 14:
      overwrite_released();
      break;
    default:
      forge(block);
  }
}

void damage_heap(struct Story* told) {
  story = told;
  for (uint32_t hits = 1 + draw(1u << draw(4)); hits > 0; --hits) {
    const struct Block* block = any_live();
    if (block && block->raw) overwrite_once(block);
  }
}
