// SPDX-License-Identifier: Apache-2.0
// A library that a program loads when it runs, with code that allocates.
#include <stdlib.h>

void* volatile late_block;

__attribute__((noinline)) static void late_helper(void) {
  late_block = malloc(4321);
}

void late_allocation(void) {
  late_helper();
  free(late_block);
}
