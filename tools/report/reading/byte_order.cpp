// SPDX-License-Identifier: Apache-2.0
#include "report/reading/byte_order.h"

#include <bit>

namespace quarl::report {
namespace {

template <size_t kCount>
void swap_words(uint32_t (&words)[kCount]) {
  for (uint32_t& word : words) word = __builtin_bswap32(word);
}

template <size_t kCount>
void swap_words(uint64_t (&words)[kCount]) {
  for (uint64_t& word : words) word = __builtin_bswap64(word);
}

template <typename... Word>
void swap_each(Word&... words) {
  ((words = __builtin_bswap32(words)), ...);
}

}  // namespace

bool needs_swap(uint8_t byte_order) {
  return (byte_order == kLittleEndian) != (std::endian::native == std::endian::little);
}

void swap_bytes(LogHeader& header) {
  swap_each(header.pid, header.thread_slots, header.thread_stats, header.trace_depth, header.maps_offset,
            header.stats_offset, header.threads_offset, header.records_offset, header.record_count,
            header.snapshot_number, header.time, header.next_snapshot);
}

void swap_bytes(OpRecord& record) {
  swap_each(record.tid, record.time, record.seq_num, record.size, record.start_addr);
  swap_words(record.trace);
}

void swap_bytes(ProfInfo& statistics) {
  swap_words(statistics.calls);
  swap_words(statistics.failed);
  swap_words(statistics.totals);
  swap_each(statistics.unfree_size, statistics.unfree_file_size, statistics.unfree_peak, statistics.unfree_file_peak,
            statistics.trace_mmap, statistics.reserved);
}

void swap_bytes(ThreadProf& thread) {
  swap_words(thread.calls);
  swap_words(thread.failed);
  swap_words(thread.totals);
  swap_each(thread.tid, thread.in_place, thread.shrink, thread.unfree_size, thread.unfree_file_size, thread.unfree_peak,
            thread.unfree_file_peak);
}

}  // namespace quarl::report
