// Allocates, aligns and resizes blocks of every kind of size and has each of them checked while it lives.
#include <malloc.h>
#include <stdlib.h>

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

int main(void) {
  for (size_t size = 1; size < 600; ++size) sweep_size(size);
  for (size_t page = 4096; page <= 4096 * 40; page += 4096)
    for (size_t around = page - 160; around <= page + 24; around += 4) sweep_size(around);
  for (size_t size = 128 * 1024 - 200; size < 128 * 1024 + 40; ++size) sweep_size(size);
  for (size_t size = 1 << 20; size < (1 << 20) + 4200; size += 100) sweep_size(size);
  for (size_t alignment = 1; alignment <= 65536; alignment *= 2)
    for (size_t size = 1; size < 300000; size = size * 3 + 7) sweep_alignment(alignment, size);
  announce("checked", (void*)checked);
  return 0;
}
