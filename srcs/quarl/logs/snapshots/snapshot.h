// SPDX-License-Identifier: Apache-2.0
// A snapshot of unfreed memory on its way into the snapshot log: one row for every live block and mapping. The faults
// that are found while it is written stand among its rows.
#pragma once

#include "logs/format.h"
#include "state/hook_lock.h"

namespace quarl {

// Begins the snapshot in the snapshot log, which must be ready.
void begin_snapshot() REQUIRES(hook_mutex);

// The next row, to be filled in place; null when there is no memory for a buffer, and the snapshot holds no rows. Each
// is followed by snapshot_row_filled.
OpRecord* next_snapshot_row() REQUIRES(hook_mutex);
void snapshot_row_filled() REQUIRES(hook_mutex);

// Ends it; `records` rows were written, those of faults included. All but `own` are what a forked child found there.
void end_snapshot(uint32_t records, uint32_t own) REQUIRES(hook_mutex);

}  // namespace quarl
