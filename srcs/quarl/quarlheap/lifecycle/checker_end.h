// SPDX-License-Identifier: Apache-2.0
// What is last, whether the program exits or a signal ends it.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// Behind the exit dump: the hooks are put back, the logs closed, and nothing is checked or recorded any more.
void end_checker() REQUIRES(hook_mutex);

// Whether that was done.
bool checker_has_ended() REQUIRES(hook_mutex);

}  // namespace quarl
