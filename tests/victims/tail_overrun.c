// SPDX-License-Identifier: Apache-2.0
// Writes one byte behind a block and releases it.
#include <stdlib.h>

#include "announce.h"

int main(void) {
  char* volatile block = malloc(10);
  announce("block", block);
  block[10] = 'x';
  free(block);
  return 0;
}
