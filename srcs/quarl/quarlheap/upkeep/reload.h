// SPDX-License-Identifier: Apache-2.0
// The reload of the configuration, as the signal dump asks for it.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// Clears the request, reads the configuration file again and opens the logs that it asks for.
void reload() REQUIRES(hook_mutex);

}  // namespace quarl
