// The interval timer: keeps the checker clock, and takes automatic snapshots when they are due.
#pragma once

#include "quarlheap/lock/hook_lock.h"

namespace quarl {

// Creates and arms the timer with a period of `seconds`, on qr_sig_num to the main thread, and installs its handler.
// Acts only while the header's time is in force and timer_clock_on is set; 0 or a failure clears timer_clock_on.
void set_up_interval_timer(int seconds);

// 0 ends automatic snapshots. Without the timer an interval above 0 ends the process (status 0) with a message.
void set_snapshot_interval(int seconds);

// The tick that the signal asked for: reads the clock, takes a snapshot when one is due.
void run_timer_tick() REQUIRES(hook_mutex);

void delete_interval_timer();

}  // namespace quarl
