// SPDX-License-Identifier: Apache-2.0
// Releases or resizes a pointer that is no block, below which every bit is set that a large chunk would have.
#include <stdlib.h>
#include <string.h>

static unsigned words[64];

int main(int argc, char** argv) {
  for (int i = 0; i < 64; ++i) words[i] = strtoul(argv[2], NULL, 0);
  void* volatile stray = &words[32];
  if (strcmp(argv[1], "free") == 0) free(stray);
  if (strcmp(argv[1], "realloc") == 0) stray = realloc(stray, 100000);
  return argc - 3;
}
