// SPDX-License-Identifier: Apache-2.0
// Large blocks, one at a time, the first and last byte of each written.
//   large blocks SIZE STEPS   a step: malloc of SIZE bytes, and free
//   large growth SIZE STEPS   a step: a block that grows from SIZE / 16 to SIZE bytes by realloc, a sixteenth each time
// Prints processor time in ns per step.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "clock.h"

namespace {

void write_ends(char* block, size_t size) {
  if (block == nullptr) abort();
  block[0] = block[size - 1] = 1;
}

void take_and_release(size_t size) {
  char* block = static_cast<char*>(malloc(size));
  write_ends(block, size);
  free(block);
}

void grow_and_release(size_t size) {
  char* block = nullptr;
  for (int part = 1; part <= 16; part++) {
    block = static_cast<char*>(realloc(block, size / 16 * part));
    write_ends(block, size / 16 * part);
  }
  free(block);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "large blocks|growth SIZE STEPS\n");
    return 2;
  }
  const auto step = strcmp(argv[1], "growth") == 0 ? grow_and_release : take_and_release;
  const size_t size = strtoul(argv[2], nullptr, 0);
  const long steps = atol(argv[3]);
  step(size);  // what happens once
  const double begin = now(CLOCK_PROCESS_CPUTIME_ID);
  for (long i = 0; i < steps; i++) step(size);
  printf("%.1f\n", (now(CLOCK_PROCESS_CPUTIME_ID) - begin) / steps);
  return 0;
}
