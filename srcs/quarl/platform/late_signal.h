// SPDX-License-Identifier: Apache-2.0
// A signal that came while its thread could not be told of it, and comes again when it can.
#pragma once

#include <signal.h>

namespace quarl {

// On the thread that holds the lock: the signal comes again when let_signal_come is called, or after that time in any
// case. Safe in a signal handler.
void put_off_signal(int number, int milliseconds);

// On the same thread.
void let_signal_come();

}  // namespace quarl
