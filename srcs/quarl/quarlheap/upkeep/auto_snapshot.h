// SPDX-License-Identifier: Apache-2.0
// Automatic snapshots: taken when they are due, in seconds of the checker clock.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// From now on one every so many seconds.
void schedule_auto_snapshots(int seconds) REQUIRES(hook_mutex);

// Takes one when it is due.
void take_due_snapshot() REQUIRES(hook_mutex);

// At exit: the last one, while they are taken at all; none follow.
void take_final_snapshot() REQUIRES(hook_mutex);

}  // namespace quarl
