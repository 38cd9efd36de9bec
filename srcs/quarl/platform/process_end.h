// SPDX-License-Identifier: Apache-2.0
// The end of the process at the checker's wish.
#pragma once

#include <signal.h>

namespace quarl {

// exit(0), as the program itself would call it: what its exit handlers allocate and release goes through the hooks, on
// whatever thread and however deep in the checker this is called. Without hook_mutex, for which they may have to wait.
[[noreturn]] void end_process();

// For a thread of the checker's own: the signal mask with which the program's exit handlers run there.
void set_mask_at_end(const sigset_t* mask);

}  // namespace quarl
