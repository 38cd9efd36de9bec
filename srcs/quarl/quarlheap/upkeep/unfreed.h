// SPDX-License-Identifier: Apache-2.0
// What the application holds at this moment: every live block and mapping, as rows of a snapshot and as a histogram.
#pragma once

#include "quarlheap/upkeep/snapshot_event.h"
#include "state/hook_lock.h"

namespace quarl {

// The snapshot in the snapshot log, which must be ready, and the histogram. Faults met on the way are reported. `kind`:
// what events call it.
void write_snapshot(const char* kind) REQUIRES(hook_mutex);

// The histogram alone, when anything is live.
void print_unfreed_table() REQUIRES(hook_mutex);

// The rows of the automatic snapshot that was just begun, which are counted in `live`.
void write_auto_snapshot_rows(LiveMemory* live) REQUIRES(hook_mutex);

}  // namespace quarl
