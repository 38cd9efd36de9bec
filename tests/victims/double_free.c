// SPDX-License-Identifier: Apache-2.0
// Releases one block twice.
#include <stdlib.h>

#include "announce.h"

int main(void) {
  char* volatile block = malloc(24);
  announce("block", block);
  free(block);
  free(block);
  return 0;
}
