// SPDX-License-Identifier: Apache-2.0
#include "logs/snapshots/snapshot.h"

#include "logs/files/log_files.h"

namespace quarl {

void begin_snapshot() {
  snapshot_log.begin_snapshot();
}

OpRecord* next_snapshot_row() {
  return primary_buffer.usable() ? primary_buffer.take_slot() : nullptr;
}

void snapshot_row_filled() {
  if (primary_buffer.full()) snapshot_log.flush();
}

void end_snapshot(uint32_t records, uint32_t own) {
  snapshot_log.end_snapshot(records, own);
}

}  // namespace quarl
