// SPDX-License-Identifier: Apache-2.0
// Writes over the word in front of a block and releases it.
#include <stdlib.h>

#include "announce.h"

int main(void) {
  unsigned* volatile block = malloc(40);
  announce("block", block);
  block[-1] = 0;
  free(block);
  return 0;
}
