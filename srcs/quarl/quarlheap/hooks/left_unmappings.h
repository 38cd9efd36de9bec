// SPDX-License-Identifier: Apache-2.0
// What becomes of the unmappings that other threads have under way when one forks.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// In the child of the thread that was `task`: they end as they did in the parent.
void settle_unmappings_left_behind(int task) REQUIRES(hook_mutex);

}  // namespace quarl
