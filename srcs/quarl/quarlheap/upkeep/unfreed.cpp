// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/unfreed.h"

#include "logs/files/log_files.h"
#include "logs/mappings/mapping_records.h"
#include "logs/snapshots/histogram.h"
#include "logs/snapshots/snapshot.h"
#include "logs/snapshots/snapshot_chain.h"
#include "quarlheap/checking/fault_report.h"
#include "quarlheap/model/block_row.h"
#include "quarlheap/model/used_list.h"
#include "state/clock.h"

namespace quarl {
namespace {

// A block that is a mapping of its own has a mapping record as well, which counts for both.
bool covered(const BoundedBlock& block) {
  return QR_TRACE_MMAP == 1 && block && block.chunk().mapped();
}

void count_block(DoubtfulBlock block, const BoundedBlock& sound, Histogram* histogram) {
  const bool counted = sound ? covered(sound) : block.names_itself() && covered(block.bounded());
  if (!counted) histogram->add(block.claimed_size());
}

// `sound`: the block, when it is known to be sound.
void fill_row(DoubtfulBlock block, const BoundedBlock& sound, OpRecord* row) {
  sound ? fill_sound_row(sound, row) : fill_live_row(block, row);
}

// The rows of a snapshot, and those of them that are not what a forked child found.
struct RowCount {
  uint32_t all = 0;
  uint32_t own = 0;
  LiveMemory live;
};

void put_live_row(DoubtfulBlock block, const BoundedBlock& sound, RowCount* rows) REQUIRES(hook_mutex) {
  rows->live.add_block(block.claimed_size());
  OpRecord* row = next_snapshot_row();
  ++rows->all;
  if (row != nullptr) fill_row(block, sound, row);
  if (row == nullptr || is_own_seq_num(row->seq_num)) ++rows->own;
  if (row != nullptr) snapshot_row_filled();
}

// Ends at a head overrun, behind which no link can be trusted. The rows of faults count as well.
void write_blocks(Histogram* histogram, RowCount* rows) REQUIRES(hook_mutex) {
  for (BlockWalk walk; walk.here(); walk.step()) {
    const DoubtfulBlock block = walk.block();
    const BoundedBlock sound = if_sound(block);
    count_block(block, sound, histogram);
    const FaultCode code = sound ? QR_FAULT_NONE : qr_check_block(block);
    if (code != QR_FAULT_NONE) {
      qr_report_fault(block, code);
      ++rows->all;
      if (code == QR_FAULT_HEAD) break;
    }
    put_live_row(block, sound, rows);
  }
}

void write_mappings(Histogram* histogram, RowCount* rows) REQUIRES(hook_mutex) {
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) {
    histogram->add(entry->record.size);
    ++rows->all;
    ++rows->live.mappings;
    if (is_own_seq_num(entry->record.seq_num)) ++rows->own;
    OpRecord* row = next_snapshot_row();
    if (row == nullptr) continue;
    *row = entry->record;
    snapshot_row_filled();
  }
}

}  // namespace

void write_snapshot(const char* kind) {
  Histogram histogram;
  begin_snapshot();
  RowCount rows;
  write_blocks(&histogram, &rows);
  write_mappings(&histogram, &rows);
  end_snapshot(rows.all, rows.own);
  tell_snapshot(kind, snapshot_log.path(), &rows.live);
  histogram.print_if_wanted(rows.all);
}

void print_unfreed_table() {
  if (heap_block_head == 0 && useed_head == nullptr) return;
  Histogram histogram;
  uint32_t live = 0;
  for (BlockWalk walk; walk.here(); walk.step()) {
    const DoubtfulBlock block = walk.block();
    const BoundedBlock sound = if_sound(block);
    count_block(block, sound, &histogram);
    ++live;
    if (!sound && qr_check_block(block) == QR_FAULT_HEAD) break;
  }
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) {
    histogram.add(entry->record.size);
    ++live;
  }
  histogram.print_if_wanted(live);
}

void write_auto_snapshot_rows(LiveMemory* live) {
  if (!snapshot_chain.begin_rows()) return;
  uint32_t rows = 0;
  for (BlockWalk walk; walk.here(); walk.step()) {
    const DoubtfulBlock block = walk.block();
    const BoundedBlock sound = if_sound(block);
    fill_row(block, sound, snapshot_chain.next_row());
    ++rows;
    if (!sound && qr_check_block(block) == QR_FAULT_HEAD) break;
    live->add_block(block.claimed_size());
  }
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) {
    *snapshot_chain.next_row() = entry->record;
    ++rows;
    ++live->mappings;
  }
  snapshot_chain.end_rows(rows);
}

}  // namespace quarl
