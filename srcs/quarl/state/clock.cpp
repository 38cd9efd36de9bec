// SPDX-License-Identifier: Apache-2.0
#include "state/clock.h"

#include "platform/system.h"

namespace quarl {

constinit int clock_sec = 0;
constinit int clock_usec = 0;
constinit uint32_t inherited_seq_num = 0;

void read_clock() {
  const sys::TimeOfDay now = sys::time_of_day();
  clock_sec = static_cast<int>(now.seconds);
  clock_usec = static_cast<int>(now.microseconds);
}

uint32_t seconds_now() {
  return static_cast<uint32_t>(sys::time_of_day().seconds);
}

}  // namespace quarl
