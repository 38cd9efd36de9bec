#include "logs/auto_snapshot.h"

#include "logs/log_files.h"
#include "logs/mapping_records.h"
#include "logs/record.h"
#include "logs/record_buffer.h"
#include "logs/sections.h"
#include "platform/print.h"
#include "quarlheap/checking/block_check.h"
#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

constinit int64_t present_start = 0;  // file offsets of the last snapshot and the one before
constinit int64_t previous_start = 0;

bool ensure_open() REQUIRES(hook_mutex) {
  if (autosnap_log.is_open()) return true;
  present_start = previous_start = 0;
  if (autosnap_log.create(autosnap_log_name)) return true;
  print(kStdout, "Create auto snap file failed!\n");
  return false;
}

void write_header_at(int64_t offset) REQUIRES(hook_mutex) {
  if (autosnap_log.seek_or_tell(offset)) autosnap_log.write_or_tell(&autosnap_header, sizeof autosnap_header);
}

// The header image still holds the previous snapshot's fields.
void link_previous() REQUIRES(hook_mutex) {
  if (present_start == 0) return;
  autosnap_header.next_snapshot = static_cast<uint32_t>(present_start);
  write_header_at(previous_start);
}

void fill_header() REQUIRES(hook_mutex) {
  lay_out_from(present_start, &autosnap_header);
  autosnap_header.record_count = 0;
  autosnap_header.snapshot_number = static_cast<uint32_t>(snap_count);
  autosnap_header.time = static_cast<uint32_t>(clock_sec);
  autosnap_header.next_snapshot = 0;
}

void write_sections() REQUIRES(hook_mutex) {
  autosnap_log.write_zeros_or_tell(maps_section_size());
  write_profile_block(autosnap_log);
  if (Flags().set(kThread)) write_thread_table(autosnap_log);
  fill_maps_section(autosnap_log, autosnap_header);
}

void write_out() REQUIRES(hook_mutex) {
  autosnap_log.write_or_tell(autosnap_buffer.records, sizeof(OpRecord) * static_cast<size_t>(autosnap_buffer.count));
  autosnap_buffer.count = 0;
}

OpRecord* next_slot() REQUIRES(hook_mutex) {
  if (autosnap_buffer.full()) write_out();
  return autosnap_buffer.take_slot();
}

uint32_t write_records() REQUIRES(hook_mutex) {
  uint32_t records = 0;
  for (Address block = heap_block_head; block != 0; block = next_on_walk(block)) {
    fill_live_block_record(block, next_slot());
    ++records;
    if (qr_check_block(block) == QR_FAULT_HEAD) break;
  }
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) {
    *next_slot() = entry->record;
    ++records;
  }
  write_out();
  return records;
}

void write_details() REQUIRES(hook_mutex) {
  if (autosnap_buffer.capacity == 0) return;
  autosnap_buffer.count = 0;
  autosnap_log.seek_or_tell(autosnap_header.records_offset);
  autosnap_header.record_count = write_records();
  autosnap_header.time = static_cast<uint32_t>(clock_sec);
  write_header_at(present_start);
}

}  // namespace

void write_auto_snapshot() {
  if (!ensure_open()) return;
  previous_start = present_start;
  present_start = autosnap_log.seek_end();
  link_previous();
  autosnap_log.seek_end();
  fill_header();
  autosnap_log.write_or_tell(&autosnap_header, sizeof autosnap_header);
  write_sections();
  if (snap_detail == 1) write_details();
}

void forget_auto_snapshots() {
  autosnap_log.forget();
  present_start = previous_start = 0;
}

}  // namespace quarl
