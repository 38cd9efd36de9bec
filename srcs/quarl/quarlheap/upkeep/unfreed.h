// What the application holds at this moment: every live block and mapping, as rows of a snapshot and as a histogram.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// The snapshot in the snapshot log, which must be ready, and the histogram. Faults met on the way are reported.
void write_snapshot() REQUIRES(hook_mutex);

// The histogram alone, when anything is live.
void print_unfreed_table() REQUIRES(hook_mutex);

// The rows of the automatic snapshot that was just begun.
void write_auto_snapshot_rows() REQUIRES(hook_mutex);

}  // namespace quarl
