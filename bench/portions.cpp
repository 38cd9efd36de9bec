// SPDX-License-Identifier: Apache-2.0
// Plain writing, to a file of its own in the current directory.
//   portions BYTES PORTION STEPS   BYTES in portions of PORTION bytes
// Prints processor time in ns per step, of which there are STEPS.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "clock.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "portions BYTES PORTION STEPS\n");
    return 2;
  }
  const long bytes = atol(argv[1]), steps = atol(argv[3]);
  const std::vector<char> portion(strtoul(argv[2], nullptr, 0), 'x');
  const int file = open("portions", O_WRONLY | O_CREAT | O_TRUNC, 0666);
  const double begin = now(CLOCK_PROCESS_CPUTIME_ID);
  for (long left = bytes; left > 0;) {
    const ssize_t written = write(file, portion.data(), portion.size());
    if (written <= 0) return 1;
    left -= written;
  }
  printf("%.1f\n", (now(CLOCK_PROCESS_CPUTIME_ID) - begin) / static_cast<double>(steps));
  return 0;
}
