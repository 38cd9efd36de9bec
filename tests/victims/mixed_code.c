// SPDX-License-Identifier: Apache-2.0
// Allocates from functions compiled as the build says (Thumb, no frame pointers), nested, and through qsort.
#include <stdlib.h>
#include <string.h>

#include "announce.h"

__attribute__((noinline)) static unsigned nest(unsigned depth) {
  char* block = malloc(depth + 1);
  memset(block, (int)depth, depth + 1);
  unsigned sum = depth == 0 ? 0 : nest(depth - 1) + (unsigned char)block[depth];
  free(block);
  return sum;
}

static int compare(const void* left, const void* right) {
  free(malloc(8));
  return *(const int*)left - *(const int*)right;
}

int main(void) {
  int values[64];
  for (int i = 0; i < 64; ++i) values[i] = (i * 37) % 64;
  qsort(values, 64, sizeof values[0], compare);
  if (nest(40) != 820 || values[63] != 63) return 1;
  announce("done", main);
  return 0;
}
