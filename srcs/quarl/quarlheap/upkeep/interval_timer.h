// SPDX-License-Identifier: Apache-2.0
// The interval timer: keeps the checker clock, and its ticks bring automatic snapshots.
#pragma once

namespace quarl {

// Creates and arms the timer with a period of `seconds`, on qr_sig_num to the main thread, and installs its handler. A
// failure is told (print_trouble) and clears timer_clock_on.
void start_interval_timer(int seconds);

// Its period in seconds; 0 while none runs.
int interval_of_timer();

void delete_interval_timer();

// No tick comes between the two.
void pause_interval_timer();
void resume_interval_timer();

// In a forked child, which inherits neither the timer nor its snapshots.
void forget_interval_timer();

}  // namespace quarl
