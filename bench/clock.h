// SPDX-License-Identifier: Apache-2.0
// Times as the programs here print them.
#pragma once

#include <time.h>

inline double now(clockid_t clock) {  // ns
  timespec time;
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}
