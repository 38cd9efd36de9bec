// SPDX-License-Identifier: Apache-2.0
// Grows while automatic snapshots are taken: waits until its log holds a snapshot, allocates, waits for the next one.
// Usage: growing LOG SNAPSHOTS
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#define APART __attribute__((noinline, noclone))

static void* volatile kept[16];

APART void grow(int round) {
  kept[round % 16] = malloc(10000);
}

APART void stay(void) {
  kept[15] = malloc(123);
}

static long size_of(const char* pattern) {
  char path[256];
  struct stat status;
  snprintf(path, sizeof path, pattern, getpid());
  return stat(path, &status) == 0 ? (long)status.st_size : 0;
}

// The timer's signal ends the wait early; the deadline is for a log that never comes.
static int wait_for_growth(const char* pattern, long size) {
  time_t deadline = time(NULL) + 60;
  while (size_of(pattern) <= size && time(NULL) < deadline) {
    struct timespec moment = {0, 20 * 1000 * 1000};
    nanosleep(&moment, NULL);
  }
  return size_of(pattern) > size;
}

int main(int count, char** arguments) {
  if (count != 3) return 2;
  stay();
  for (int round = 0; round < atoi(arguments[2]); ++round) {
    long size = size_of(arguments[1]);
    grow(round);
    if (!wait_for_growth(arguments[1], size)) return 1;
  }
  return 0;
}
