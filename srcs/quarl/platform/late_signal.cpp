// SPDX-License-Identifier: Apache-2.0
#include "platform/late_signal.h"

#include <time.h>

#include "platform/system.h"
#include "platform/thread_cache.h"

namespace quarl {
namespace {

constinit int signal_put_off = 0;

void send_after(int number, int milliseconds) {
  sys::Timer timer;
  struct itimerspec once {};
  once.it_value = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
  if (sys::make_timer(CLOCK_MONOTONIC, number, current_tid(), nullptr, &timer)) sys::arm_timer(timer, once);
}

}  // namespace

void put_off_signal(int number, int milliseconds) {
  signal_put_off = number;
  send_after(number, milliseconds);
}

void let_signal_come() {
  sys::send_to_this_thread(signal_put_off, nullptr);
}

}  // namespace quarl
