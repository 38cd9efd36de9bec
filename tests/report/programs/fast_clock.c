// SPDX-License-Identifier: Apache-2.0
// Preloaded into the tool: between two looks at the steady clock ten seconds pass.
#define _GNU_SOURCE
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

int clock_gettime(clockid_t clock, struct timespec* now) {
  static time_t passed;
  int result = (int)syscall(SYS_clock_gettime, clock, now);
  if (clock == CLOCK_MONOTONIC) now->tv_sec += passed += 10;
  return result;
}
