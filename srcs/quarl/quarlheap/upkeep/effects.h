// SPDX-License-Identifier: Apache-2.0
// Carries out what items ask for beyond the settings.
#pragma once

#include "config/effect.h"
#include "state/hook_lock.h"

namespace quarl {

// An item may ask for the end of the process, which comes when the lock is released.
void carry_out(const Effect& effect) REQUIRES(hook_mutex);

}  // namespace quarl
