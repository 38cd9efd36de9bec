// SPDX-License-Identifier: Apache-2.0
// Damages two of three blocks behind their ends and never releases them.
#include <stdlib.h>

#include "announce.h"

int main(void) {
  char* volatile blocks[3];
  for (int i = 0; i < 3; ++i) {
    blocks[i] = malloc(16);
    announce("block", blocks[i]);
  }
  blocks[0][16] = 'x';
  blocks[2][19] = 'x';
  return 7;
}
