// SPDX-License-Identifier: Apache-2.0
// Who the process is, and whether its allocations pass through the hooks.
#pragma once

namespace quarl {

extern int proc_pid;
extern char proc_name[16];  // NUL-terminated
extern bool forked_child;   // the process began as a fork of a checked one

extern int hooks_installed;  // 1 from the end of installation until the saved hooks are put back

}  // namespace quarl
