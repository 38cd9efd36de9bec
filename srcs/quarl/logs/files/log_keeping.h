// SPDX-License-Identifier: Apache-2.0
// Which of the process's own logs stay when it exits: all, or with QUARL_KEEP=findings those that say something.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// Reads the variable; once, at start-up: the application may change its environment later.
void settle_log_keeping();

// At exit, when the logs are closed: removes those that this process has created and that hold no fault, no record of
// an operation and nothing unfreed that is its own. Automatic snapshots stay in any case.
void remove_logs_that_say_nothing() REQUIRES(hook_mutex);

}  // namespace quarl
