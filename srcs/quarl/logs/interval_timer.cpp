#include "logs/interval_timer.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>

#include "config/state/config_state.h"
#include "logs/auto_snapshot.h"
#include "platform/print.h"

#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace quarl {
namespace {

void read_clock() {
  struct timeval now {};
  gettimeofday(&now, nullptr);
  clock_sec = static_cast<int>(now.tv_sec);
  clock_usec = static_cast<int>(now.tv_usec);
}

// The clock is read at once, so that it is right to the interval even while a hook holds the lock.
void handle_timer_signal(int, siginfo_t*, void*) {
  read_clock();
  hook_mutex.request(kPendingTick);
}

bool create_timer() {
  struct sigevent event {};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = qr_sig_num;
  event.sigev_value.sival_ptr = &timer_id;
  event.sigev_notify_thread_id = proc_pid;
  return timer_create(CLOCK_REALTIME, &event, &timer_id) == 0;
}

bool arm_timer(int seconds) {
  struct itimerspec period {};
  period.it_interval.tv_sec = seconds;
  period.it_value.tv_sec = seconds;
  return timer_settime(timer_id, 0, &period, nullptr) == 0;
}

void install_handler() {
  struct sigaction action {};
  action.sa_sigaction = handle_timer_signal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART | SA_SIGINFO;
  sigaction(qr_sig_num, &action, nullptr);
}

void give_up() {
  print(kStdout, "Create timer failed,quarlheap can't get system time!\n");
  timer_clock_on = 0;
}

}  // namespace

void set_up_interval_timer(int seconds) {
  if (!Flags().in_force(kHeadTime) || timer_clock_on == 0) return;
  if (seconds == 0) {
    timer_clock_on = 0;
    return;
  }
  if (!create_timer()) {
    give_up();
    return;
  }
  // Before the first tick can come: its default action would end the process.
  install_handler();
  if (!arm_timer(seconds)) {
    give_up();
    timer_delete(timer_id);
    return;
  }
  read_clock();
  timer_interval = seconds;
}

void set_snapshot_interval(int seconds) {
  const bool possible = timer_clock_on == 1;
  snap_interval = possible ? seconds : 0;
  next_snap_time = snap_interval != 0 ? static_cast<uint32_t>(seconds + clock_sec) : 0;
  // A forked child has no timer, and its parent's configuration file must not end it.
  if (seconds <= 0 || possible || forked_child) return;
  print(kStdout, "Get time function is invalid, can not get snapshot info of memory automatically!\n");
  exit(0);
}

void run_timer_tick() {
  if (snap_interval < 1 || next_snap_time > static_cast<uint32_t>(clock_sec)) return;
  const int now = clock_sec;
  ++snap_count;
  write_auto_snapshot();
  next_snap_time = static_cast<uint32_t>(snap_interval + now);
}

void delete_interval_timer() {
  if (timer_clock_on == 0) return;
  // timer_clock_on alone says that it is wanted; the interval that it runs.
  if (timer_interval != 0) timer_delete(timer_id);
  timer_interval = 0;
  timer_clock_on = 0;
}

}  // namespace quarl
