// SPDX-License-Identifier: Apache-2.0
// Allocates, aligns and resizes blocks of every kind of size and has each of them checked while it lives.
#include <malloc.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include "announce.h"

static unsigned long checked;

static void check(void* block) {
  if (block == NULL) _exit(3);
  if (quarl_check_mem) quarl_check_mem();
  ++checked;
}

static void sweep_size(size_t size) {
  void* block = malloc(size);
  check(block);
  block = realloc(block, size + 1);
  check(block);
  block = realloc(block, size / 2 + 1);
  check(block);
  free(block);
}

static void sweep_alignment(size_t alignment, size_t size) {
  void* block = memalign(alignment, size);
  if ((size_t)block % alignment != 0) _exit(4);
  check(block);
  block = realloc(block, size * 2 + 1);
  check(block);
  block = realloc(block, 20);
  check(block);
  block = realloc(block, 140000);
  check(block);
  free(block);
}

// To the last byte, in a mapping that the block and its header fill but for a few.
static void sweep_kept(size_t alignment, size_t size) {
  unsigned char* block = memalign(alignment, size);
  check(block);
  if (malloc_usable_size(block) < size) _exit(7);
  memset(block, 'k', size);
  block = realloc(block, size + 5000);
  check(block);
  for (size_t i = 0; i < size; ++i)
    if (block[i] != 'k') _exit(8);
  free(block);
}

// What the arenas of threads have no room for.
static void* sweep_large_alignments(void* unused) {
  for (size_t alignment = 8; alignment <= 4 << 20; alignment *= 2)
    for (size_t size = 100; size < 5000000; size = size * 5 + 4093) sweep_alignment(alignment, size);
  for (size_t alignment = 8; alignment <= 8192; alignment *= 2)
    for (size_t around = 1 << 20; around < (1 << 20) + 4200; around += 52) {
      void* block = memalign(alignment, around);
      check(block);
      free(block);
    }
  return unused;
}

static void sweep_in_thread(void) {
  pthread_t thread;
  if (pthread_create(&thread, NULL, sweep_large_alignments, NULL) != 0) _exit(5);
  pthread_join(thread, NULL);
}

int main(void) {
  for (size_t size = 1; size < 600; ++size) sweep_size(size);
  for (size_t page = 4096; page <= 4096 * 40; page += 4096)
    for (size_t around = page - 160; around <= page + 24; around += 4) sweep_size(around);
  for (size_t size = 128 * 1024 - 200; size < 128 * 1024 + 40; ++size) sweep_size(size);
  for (size_t size = 1 << 20; size < (1 << 20) + 4200; size += 100) sweep_size(size);
  for (size_t alignment = 1; alignment <= 65536; alignment *= 2)
    for (size_t size = 1; size < 300000; size = size * 3 + 7) sweep_alignment(alignment, size);
  for (size_t alignment = 8; alignment <= 8192; alignment *= 2)
    for (size_t size = (128 << 10) - 400; size < (128 << 10) + 8; size += 4) sweep_kept(alignment, size);
  sweep_in_thread();
  if (mallopt(M_MMAP_MAX, 1000) != 1 || mallopt(M_MMAP_THRESHOLD, 4096) != 1) _exit(6);
  for (size_t size = 1000; size < 140000; size += 997) sweep_size(size);
  sweep_in_thread();
  announce("checked", (void*)checked);
  return 0;
}
