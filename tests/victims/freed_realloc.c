// SPDX-License-Identifier: Apache-2.0
// Resizes a block that it has released.
#include <stdlib.h>

#include "announce.h"

int main(void) {
  char* volatile block = malloc(24);
  announce("block", block);
  free(block);
  char* volatile moved = realloc(block, 48);
  announce("moved", moved);
  return 0;
}
