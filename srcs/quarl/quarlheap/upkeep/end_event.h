// SPDX-License-Identifier: Apache-2.0
// The last that a process tells: how many faults were found and what is live.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// It ends by itself (signal 0), or by a signal that was seen.
void tell_exit(int signal) REQUIRES(hook_mutex);

// It is about to confine itself (platform/confinement.h), and tells nothing from then on.
void tell_confined() REQUIRES(hook_mutex);

}  // namespace quarl
