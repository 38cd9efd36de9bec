// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/interval_timer.h"

#include <errno.h>
#include <signal.h>
#include <time.h>

#include "platform/confinement.h"
#include "platform/print.h"
#include "platform/system.h"
#include "state/clock.h"
#include "state/process.h"
#include "state/settings.h"

namespace quarl {
namespace {

constinit sys::Timer timer{};
constinit int timer_interval = 0;  // seconds; 0 while no timer runs

// The clock is read at once, so that it is right to the interval even while a hook holds the lock.
void handle_timer_signal(int, siginfo_t*, void*) {
  if (confined()) return;
  read_clock();
  hook_mutex.request(kPendingTick);
}

bool create_timer() {
  return sys::make_timer(CLOCK_REALTIME, qr_sig_num, proc_pid, &timer, &timer);
}

bool arm_timer(int seconds) {
  struct itimerspec period {};
  period.it_interval.tv_sec = seconds;
  period.it_value.tv_sec = seconds;
  return sys::arm_timer(timer, period);
}

void install_handler() {
  struct sigaction action {};
  action.sa_sigaction = handle_timer_signal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART | SA_SIGINFO;
  sigaction(qr_sig_num, &action, nullptr);
}

void give_up() {
  static bool told_before = false;
  print_trouble(&told_before, {"timer", nullptr, errno}, "Create timer failed,quarlheap can't get system time!\n");
  settings.timer_clock_on = 0;
}

}  // namespace

void start_interval_timer(int seconds) {
  if (!create_timer()) {
    give_up();
    return;
  }
  // Before the first tick can come: its default action would end the process.
  install_handler();
  if (!arm_timer(seconds)) {
    give_up();
    sys::delete_timer(timer);
    return;
  }
  read_clock();
  timer_interval = seconds;
}

int interval_of_timer() {
  return timer_interval;
}

void delete_interval_timer() {
  if (settings.timer_clock_on == 0) return;
  // timer_clock_on alone says that it is wanted; the interval that it runs.
  if (timer_interval != 0) sys::delete_timer(timer);
  forget_interval_timer();
}

void pause_interval_timer() {
  if (timer_interval != 0) arm_timer(0);
}

void resume_interval_timer() {
  if (timer_interval != 0) arm_timer(timer_interval);
}

void forget_interval_timer() {
  timer_interval = 0;
  settings.timer_clock_on = 0;
}

}  // namespace quarl
