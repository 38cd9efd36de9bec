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

void write_or_tell(const void* data, size_t size) REQUIRES(hook_mutex) {
  if (!autosnap_log.write(data, size)) print_write_failure();
}

void write_header_at(int64_t offset) REQUIRES(hook_mutex) {
  if (autosnap_log.seek(offset) < 0) {
    print_write_failure();
  } else {
    write_or_tell(&autosnap_header, sizeof autosnap_header);
  }
}

// The header image still holds the previous snapshot's fields.
void link_previous() REQUIRES(hook_mutex) {
  if (present_start == 0) return;
  autosnap_header.next_snapshot = static_cast<uint32_t>(present_start);
  write_header_at(previous_start);
}

void fill_header() REQUIRES(hook_mutex) {
  autosnap_header.maps_offset = static_cast<uint32_t>(present_start) + sizeof(LogHeader);
  autosnap_header.stats_offset = autosnap_header.maps_offset + maps_section_size();
  autosnap_header.threads_offset = autosnap_header.stats_offset + sizeof(ProfInfo);
  autosnap_header.records_offset = autosnap_header.threads_offset + kThreadTableSize;
  autosnap_header.record_count = 0;
  autosnap_header.snapshot_number = static_cast<uint32_t>(snap_count);
  autosnap_header.time = static_cast<uint32_t>(clock_sec);
  autosnap_header.next_snapshot = 0;
}

void write_sections() REQUIRES(hook_mutex) {
  if (!autosnap_log.write_zeros(maps_section_size())) print_write_failure();
  write_profile_block(autosnap_log);
  if (Flags().set(kThread)) write_thread_table(autosnap_log);
  if (autosnap_log.seek(autosnap_header.maps_offset) < 0) {
    print_write_failure();
  } else if (maps_file.is_open()) {
    if (maps_file.seek(0) < 0) {
      print(kStdout, "Seek the maps file failed.\n");
    } else {
      copy_maps_text(autosnap_log);
    }
  }
}

void write_out() REQUIRES(hook_mutex) {
  write_or_tell(autosnap_buffer.records, sizeof(OpRecord) * static_cast<size_t>(autosnap_buffer.count));
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
  if (autosnap_log.seek(autosnap_header.records_offset) < 0) print_write_failure();
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
  write_or_tell(&autosnap_header, sizeof autosnap_header);
  write_sections();
  if (snap_detail == 1) write_details();
}

void forget_auto_snapshots() {
  autosnap_log.forget();
  present_start = previous_start = 0;
}

}  // namespace quarl
