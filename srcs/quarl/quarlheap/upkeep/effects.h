// Carries out what items ask for beyond the settings.
#pragma once

#include "config/effect.h"
#include "state/hook_lock.h"

namespace quarl {

// May end the process (exit), as an item asks: the destructor then runs on this thread, which holds the lock.
void carry_out(const Effect& effect) REQUIRES(hook_mutex);

}  // namespace quarl
