#include "quarlheap/model/block_row.h"

#include <string.h>

#include "platform/print.h"

namespace quarl {
namespace {

bool usable(const OpRecord* record) {
  if (record == nullptr) print(kStderr, "Fill trace info failed\n");
  return record != nullptr;
}

void fill_known(Address p, OpRecord* record, RecordKind result) {
  record->result = result;
  record->size = DoubtfulBlock(p).claimed_size();
  record->start_addr = p;
}

// Operation and depth are told of a block with a trace only.
void fill_optional(Address p, HeaderLayout layout, OpRecord* record) {
  layout.trace_info = layout.trace;
  const HeaderFields fields = HeaderFields::read(p, layout);
  record->tid = fields.tid;
  record->time = fields.time;
  record->seq_num = fields.seq_num;
  record->stack_depth = static_cast<uint8_t>(fields.info.depth());
  record->operation = fields.info.operation();
}

HeaderLayout configured_layout() {
  return HeaderLayout::configured(Flags());
}

uint32_t entries(int depth) {
  return depth > 0 ? static_cast<uint32_t>(depth) : 0;
}

uint32_t trace_offset(const HeaderLayout& layout, int depth) {
  return layout.lowest_offset(layout.trace ? entries(depth) : 0);
}

// depth words of the block, at most kMaxTrace, and zeros behind them.
void copy_trace(Address lowest_word, int depth, OpRecord* record) {
  const size_t count = entries(depth) < kMaxTrace ? entries(depth) : kMaxTrace;
  memcpy(record->trace, pointer_to(lowest_word), sizeof(uint32_t) * count);
  memset(record->trace + count, 0, sizeof(uint32_t) * (kMaxTrace - count));
}

}  // namespace

void qr_fill_trace_info(Address p, OpRecord* record, RecordKind result) {
  if (!usable(record)) return;
  fill_known(p, record, result);
  if (qr_is_block(p)) fill_optional(p, DoubtfulBlock(p).claimed_layout(), record);
}

void qr_fill_trace_info_cfg(Address p, OpRecord* record, RecordKind result) {
  if (!usable(record)) return;
  fill_known(p, record, result);
  fill_optional(p, configured_layout(), record);
  if (static_cast<int8_t>(record->stack_depth) > kMaxTrace) record->stack_depth = kMaxTrace;
}

uint32_t qr_trace_offset(Address p, int depth) {
  return qr_is_block(p) ? trace_offset(DoubtfulBlock(p).claimed_layout(), depth) : 0;
}

uint32_t qr_trace_offset_cfg(Address, int depth) {
  return trace_offset(configured_layout(), depth);
}

void fill_live_row(DoubtfulBlock block, OpRecord* record) {
  memset(record, 0, kRecordHeadSize);
  qr_fill_trace_info(block.p(), record, kKindAllocated);
  const int depth = record->stack_depth;
  copy_trace(block.p() - qr_trace_offset(block.p(), depth), depth, record);
}

void fill_fault_row(DoubtfulBlock block, RecordKind kind, OpRecord* record) {
  const Address p = block.p();
  const bool by_configuration = kind == kKindSlopHead;
  *record = {};
  by_configuration ? qr_fill_trace_info_cfg(p, record, kind) : qr_fill_trace_info(p, record, kind);
  const int depth = static_cast<int8_t>(record->stack_depth);
  if (depth <= 0) return;
  copy_trace(p - (by_configuration ? qr_trace_offset_cfg(p, depth) : qr_trace_offset(p, depth)), depth, record);
}

}  // namespace quarl
