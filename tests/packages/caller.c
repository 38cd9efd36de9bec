// SPDX-License-Identifier: Apache-2.0
// A program that calls the checker: damages a block, has it found, mends it, and says with which library it ran.
#include <quarl.h>
#include <stdio.h>
#include <stdlib.h>

int main(void) {
  volatile char* block = malloc(12);
  const char guard = block[12];
  block[12] = 0;
  quarl_check_mem();
  block[12] = guard;
  free((void*)block);
  puts(quarl_version);
}
