// The automatic-snapshot log: a chain of snapshots, each a whole log of its own, appended one after the other.
#pragma once

#include "quarlheap/lock/hook_lock.h"

namespace quarl {

// Appends one snapshot, numbered snap_count, creating the log when it is not open.
void write_auto_snapshot() REQUIRES(hook_mutex);

// In a forked child: its log is another file.
void forget_auto_snapshots() REQUIRES(hook_mutex);

}  // namespace quarl
