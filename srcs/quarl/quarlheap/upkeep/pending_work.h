// SPDX-License-Identifier: Apache-2.0
// The work that signal handlers leave to the owner of hook_mutex.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

void do_pending_work(uint32_t work);

}  // namespace quarl
