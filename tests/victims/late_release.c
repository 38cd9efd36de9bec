// SPDX-License-Identifier: Apache-2.0
// Gives blocks of every kind to a library that releases them after the checker has restored the hooks. The library's
// first block, which has no header, is released in one of three ways: plainly, resized before, or while another block
// is damaged.
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include "announce.h"

extern void* companion_early;
extern void* companion_late[4];

static void release_beside_damage(void* block) {
  unsigned* damaged = malloc(20);
  const unsigned whole = damaged[-1];
  damaged[-1] = 0;
  free(block);
  damaged[-1] = whole;
  free(damaged);
}

int main(int argc, char** argv) {
  announce("early", companion_early);
  memset(companion_early, 'e', 64);
  if (argc == 1) {
    free(companion_early);
  } else if (strcmp(argv[1], "damage") == 0) {
    release_beside_damage(companion_early);
  } else {  // gets a header now
    char* moved = realloc(companion_early, 128);
    if (moved[63] != 'e') return 1;
    free(moved);
  }
  companion_late[0] = malloc(100);
  companion_late[1] = calloc(10, 10);
  companion_late[2] = memalign(256, 1000);
  companion_late[3] = malloc(300000);
  return 0;
}
