// SPDX-License-Identifier: Apache-2.0
// The statistics as a table on standard output.
#include "logs/statistics/statistics.h"
#include "platform/print.h"

namespace quarl {
namespace {

using Table = TextBuffer<1536>;

void put_row(Table* table, const char* name, uint32_t calls, uint32_t failed, uint64_t total) {
  table->format("%-12s%-10lu    %-10lu     %-llu\n", name, static_cast<unsigned long>(calls),
                static_cast<unsigned long>(failed), static_cast<unsigned long long>(total));
}

void put_held(Table* table, const char* name, uint32_t bytes) {
  table->format("%-26s%lu\n", name, static_cast<unsigned long>(bytes));
}

void put_plain_row(Table* table, const char* name, Operation op) {
  put_row(table, name, prof_info->calls[op], prof_info->failed[op], prof_info->totals[op]);
}

// Without the calls that the allocator made for large blocks.
void put_own_mapping_row(Table* table, const char* name, Operation op, Operation chunk) {
  put_row(table, name, prof_info->calls[op] - prof_info->calls[chunk], prof_info->failed[op] - prof_info->failed[chunk],
          prof_info->totals[op] - prof_info->totals[chunk]);
}

// Bytes of new blocks less bytes of old ones: negative after more shrinking than growing.
void put_realloc_row(Table* table) {
  const auto net = static_cast<long long>(prof_info->totals[kOpRealloc] - prof_info->totals[kOpReallocRelease]);
  table->format("realloc     %-10lu    %-10lu     %-lld\n", static_cast<unsigned long>(prof_info->calls[kOpRealloc]),
                static_cast<unsigned long>(prof_info->failed[kOpRealloc]), net);
}

}  // namespace

void print_statistics() {
  if (gathered_statistics() == nullptr) return;
  Table table;
  table.format("\n########### Program memory prof info ###########\n");
  table.format("            calls count   failed count   total size(byte)\n");
  put_plain_row(&table, "malloc", kOpMalloc);
  put_realloc_row(&table);
  put_plain_row(&table, "free", kOpFree);
  put_plain_row(&table, "memalign", kOpMemalign);
  put_own_mapping_row(&table, "mmap", kOpMmap, kOpChunkMap);
  put_own_mapping_row(&table, "munmap", kOpMunmap, kOpChunkUnmap);
  put_plain_row(&table, "mmap file", kOpMmapFile);
  put_plain_row(&table, "munmap file", kOpMunmapFile);
  put_held(&table, "unfree mem size", prof_info->unfree_size);
  put_held(&table, "unfree mem peak", prof_info->unfree_peak);
  put_held(&table, "unfree mem size from file", prof_info->unfree_file_size);
  put_held(&table, "unfree mem peak from file", prof_info->unfree_file_peak);
  table.format("\n");
  write_message(kStdout, table);
}

}  // namespace quarl
