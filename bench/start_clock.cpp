// SPDX-License-Identifier: Apache-2.0
// To be preloaded behind another library: constructors run from the last library to the first.
#include "clock.h"

extern "C" {
[[gnu::visibility("default")]] double constructors_begin = 0;
}

[[gnu::constructor]] static void note() {
  constructors_begin = now(CLOCK_PROCESS_CPUTIME_ID);
}
