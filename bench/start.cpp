// SPDX-License-Identifier: Apache-2.0
// A program that begins and ends. Prints the processor time in ns that its process has used when the first constructor
// of a preloaded library begins (start_clock.cpp) and when main does.
#include <dlfcn.h>

#include <cstdio>

#include "clock.h"

int main() {
  const double begins = now(CLOCK_PROCESS_CPUTIME_ID);
  const auto* constructors_begin = static_cast<double*>(dlsym(RTLD_DEFAULT, "constructors_begin"));
  if (constructors_begin == nullptr) return 1;
  printf("%.0f %.0f\n", *constructors_begin, begins);
  return 0;
}
