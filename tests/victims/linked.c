// SPDX-License-Identifier: Apache-2.0
// Needs the library by itself, as a program that no LD_PRELOAD reaches: leaves one block unfreed.
#include <stdlib.h>

int main(void) {
  return malloc(10) == NULL;
}
