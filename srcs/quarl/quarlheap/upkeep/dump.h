// SPDX-License-Identifier: Apache-2.0
// The dumps that refresh the log files: on the QUARL_SIG signal, and at exit.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// The handler: asks for a reload at the next hooked call, and for the dump now (or when the lock is released).
void handle_dump_signal(int number);
void run_signal_dump() REQUIRES(hook_mutex);

// Everything that the destructor writes and prints, in its order.
void run_exit_dump() REQUIRES(hook_mutex);

}  // namespace quarl
