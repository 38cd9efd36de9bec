// SPDX-License-Identifier: Apache-2.0
// Asks for a heap check twice with one damaged block of memalign, then repairs it and releases it.
#include <malloc.h>

#include "announce.h"

int main(void) {
  unsigned char* volatile block = memalign(64, 100);
  announce("block", block);
  unsigned char whole = block[100];
  block[100] = 0;
  if (quarl_check_mem) {
    quarl_check_mem();
    quarl_check_mem();
  }
  block[100] = whole;
  free(block);
  return 0;
}
