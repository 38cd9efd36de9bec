#include "logs/histogram.h"

#include "config/state/config_state.h"
#include "logs/mapping_records.h"
#include "platform/print.h"
#include "quarlheap/checking/block_check.h"
#include "quarlheap/model/used_list.h"

namespace quarl {

void Histogram::add(uint32_t size) {
  int level = 0;
  for (uint32_t bound = 100; level < kLevels - 1 && size >= bound; bound *= 10) ++level;
  ++counts[level];
}

void Histogram::print() const {
  TextBuffer<512> table;
  table.format("Prof info of unfreed memory blocks is as follows:\n");
  table.format("\nLevel   size(byte)      unfree memory num\n");
  long long bound = 10;
  table.format("%-5d   %-5d - %-5lld   %d\n", 0, 0, bound * 10 - 1, counts[0]);
  for (int level = 1; level < kLevels - 1; ++level) {
    bound *= 10;
    table.format("%-5d   %-5lld - %-5lld   %d\n", level, bound, bound * 10 - 1, counts[level]);
  }
  table.format("%-5d   Large           %d\n", kLevels - 1, counts[kLevels - 1]);
  write_message(kStdout, table);
}

bool covered_by_mapping_record(Address block) {
  return QR_TRACE_MMAP == 1 && qr_is_block(block) && chunk_before(block - header_offset_of(block)).mapped();
}

void print_unfreed(const Histogram& histogram, uint32_t live) {
  const Flags flags;
  if (!flags.in_force(kPrintProfinfo | kProf)) return;
  if (live > 0) {
    histogram.print();
  } else if (flags.header()) {
    print(kStdout, "\nNo memory block unfree.\n");
  }
}

void print_unfreed_table() {
  Histogram histogram;
  uint32_t live = 0;
  for (Address block = heap_block_head; block != 0; block = next_on_walk(block)) {
    if (!covered_by_mapping_record(block)) histogram.add(user_size_of(block));
    ++live;
    if (qr_check_block(block) == QR_FAULT_HEAD) break;
  }
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) {
    histogram.add(entry->record.size);
    ++live;
  }
  print_unfreed(histogram, live);
}

}  // namespace quarl
