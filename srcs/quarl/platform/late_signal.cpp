#include "platform/late_signal.h"

#include <time.h>

#include "platform/system.h"
#include "platform/thread_cache.h"

#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace quarl {
namespace {

constinit int signal_put_off = 0;

void send_after(int number, int milliseconds) {
  struct sigevent event {};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = number;
  event.sigev_notify_thread_id = current_tid();
  timer_t timer{};
  struct itimerspec once {};
  once.it_value = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
  if (timer_create(CLOCK_MONOTONIC, &event, &timer) == 0) timer_settime(timer, 0, &once, nullptr);
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
