#include "logs/snapshot.h"

#include <time.h>

#include "logs/histogram.h"
#include "logs/log_files.h"
#include "logs/mapping_records.h"
#include "logs/record.h"
#include "logs/record_buffer.h"
#include "platform/print.h"
#include "quarlheap/checking/fault_report.h"
#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

// Records of blocks, their faults included; ends at a head overrun. Returns the number of records.
uint32_t write_blocks(Histogram* histogram) REQUIRES(hook_mutex) {
  uint32_t records = 0;
  for (Address block = heap_block_head; block != 0; block = next_on_walk(block)) {
    if (!covered_by_mapping_record(block)) histogram->add(user_size_of(block));
    const FaultCode code = qr_check_block(block);
    if (code != QR_FAULT_NONE) {
      qr_report_fault(block, code);
      ++records;
      if (code == QR_FAULT_HEAD) break;
    }
    record_live_block(block);
    ++records;
  }
  return records;
}

uint32_t write_mappings(Histogram* histogram) REQUIRES(hook_mutex) {
  uint32_t records = 0;
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) {
    histogram->add(entry->record.size);
    ++records;
    if (primary_buffer.capacity == 0) continue;
    *primary_buffer.take_slot() = entry->record;
    if (primary_buffer.full()) flush_to_snapshot_log();
  }
  return records;
}

void write_counted_header(uint32_t records) REQUIRES(hook_mutex) {
  main_header.record_count = primary_buffer.capacity > 0 ? records : 0;
  main_header.time = static_cast<uint32_t>(time(nullptr));
  if (snapshot_log.seek_or_tell(0)) snapshot_log.write_or_tell(&main_header, sizeof main_header);
  snapshot_log.seek_end();
  main_header.record_count = 0;
  main_header.time = 0;
}

}  // namespace

void write_snapshot() {
  Histogram histogram;
  primary_buffer.count = 0;
  // Records of the snapshot before would stand behind shorter new ones.
  if (!snapshot_log.truncate(main_header.records_offset) || snapshot_log.seek(main_header.records_offset) < 0) {
    print_write_failure();
  }
  uint32_t records = write_blocks(&histogram);
  records += write_mappings(&histogram);
  flush_to_snapshot_log();
  write_counted_header(records);
  print_unfreed(histogram, records);
}

}  // namespace quarl
