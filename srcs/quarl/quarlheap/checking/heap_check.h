// SPDX-License-Identifier: Apache-2.0
// The check of the whole heap. It reports, it never stops a thread.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// Checks every block on the used list; ends at a head overrun, behind which no link can be trusted.
void qr_heap_check() REQUIRES(hook_mutex);

// The check on signal `number`, when an item asks for it: the handler that QUARL_SLOPOVER_TIMER and QUARL_SLOPOVER_USER
// install. The check runs now, or when the lock is released.
void handle_check_signal(int number);

}  // namespace quarl
