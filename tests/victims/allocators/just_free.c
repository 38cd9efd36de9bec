// SPDX-License-Identifier: Apache-2.0
// A free of the program's own, and nothing else: it hands the block to the C library (a program that counts), or drops
// it with DROPS (one that ends soon).
#include "own.h"

static unsigned calls;

EXPORT void free(void* block) {
  ++calls;
#ifndef DROPS
  __libc_free(block);
#else
  (void)block;
#endif
}
