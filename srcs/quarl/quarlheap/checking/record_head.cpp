#include "quarlheap/checking/record_head.h"

#include <string.h>

#include "platform/print.h"

namespace quarl {
namespace {

bool usable(const OpRecord* record) {
  if (record == nullptr) print(kStderr, "Fill trace info failed\n");
  return record != nullptr;
}

Layout configured_layout() {
  const Flags flags;
  const bool trace = flags.in_force(kHeadStackdepth);
  return {flags.in_force(kHeadTid), flags.in_force(kHeadTime), trace, trace};
}

void fill_fields(Address p, const Layout& layout, OpRecord* record) {
  record->tid = layout.tid ? field_at(p, layout.tid_offset()) : 0;
  record->time = layout.time ? field_at(p, layout.time_offset()) : 0;
  record->seq_num = layout.time ? field_at(p, layout.seq_offset()) : 0;
  const TraceInfo info{layout.trace ? field_at(p, layout.trace_info_offset()) : 0};
  record->stack_depth = static_cast<uint8_t>(info.depth());
  record->operation = info.operation();
}

uint32_t lowest_word_offset(const Layout& layout, int depth) {
  const uint32_t offset = layout.trace_info_offset() - (layout.trace_info ? 0 : 4);
  return layout.trace && depth >= 1 ? offset + 4 * static_cast<uint32_t>(depth) : offset;
}

void fill_known(Address p, OpRecord* record, RecordKind result) {
  record->result = result;
  record->size = user_size_of(p);
  record->start_addr = p;
}

}  // namespace

void qr_fill_trace_info(Address p, OpRecord* record, RecordKind result) {
  if (!usable(record)) return;
  fill_known(p, record, result);
  if (qr_is_block(p)) fill_fields(p, Layout::of_block(p), record);
}

void qr_fill_trace_info_cfg(Address p, OpRecord* record, RecordKind result) {
  if (!usable(record)) return;
  fill_known(p, record, result);
  fill_fields(p, configured_layout(), record);
  if (static_cast<int8_t>(record->stack_depth) > kMaxTrace) record->stack_depth = kMaxTrace;
}

uint32_t qr_trace_offset(Address p, int depth) {
  if (!qr_is_block(p)) return 0;
  return lowest_word_offset(Layout::of_block(p), depth);
}

uint32_t qr_trace_offset_cfg(Address, int depth) {
  return lowest_word_offset(configured_layout(), depth);
}

void copy_block_trace(Address lowest_word, int depth, OpRecord* record) {
  const int count = depth < 0 ? 0 : depth > kMaxTrace ? kMaxTrace : depth;
  memcpy(record->trace, reinterpret_cast<const void*>(lowest_word), sizeof(uint32_t) * static_cast<size_t>(count));
  memset(record->trace + count, 0, sizeof(uint32_t) * static_cast<size_t>(kMaxTrace - count));
}

}  // namespace quarl
