// Gives blocks of every kind to a library that releases them after the checker has restored the hooks.
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include "announce.h"

extern void* companion_early;
extern void* companion_late[4];

int main(int argc, char** argv) {
  (void)argv;
  announce("early", companion_early);
  memset(companion_early, 'e', 64);
  if (argc == 1) {
    free(companion_early);
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
