// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/block_row.h"

#include <string.h>

#include "logs/records/record.h"
#include "platform/print.h"

namespace quarl {
namespace {

bool usable(const OpRecord* record) {
  if (record == nullptr) print(kStderr, "Fill trace info failed\n");
  return record != nullptr;
}

// `count` words from `from` upwards, at most a page of them; 0 for those that are not there.
void copy_words(Address from, uint32_t count, uint32_t* out) {
  if (count == 0) return;
  const Address last = from + 4 * (count - 1);
  const uint32_t below = on_one_page(from, last) ? count : (round_up(from + 4, 1U << kPageShift) - from) / 4;
  memset(out, 0, 4 * count);
  if (memory_exists(from)) memcpy(out, pointer_to(from), 4 * below);
  if (below < count && memory_exists(last)) memcpy(out + below, pointer_to(from + 4 * below), 4 * (count - below));
}

// The words below a pointer, down to the lowest that lies at a fixed place.
struct Words {
  explicit Words(Address p) { copy_words(p - sizeof words, kCount, words); }
  const uint32_t* end() const { return words + kCount; }
  uint32_t at(HeaderWord which) const { return end()[which]; }
  HeaderLayout layout() const { return HeaderLayout::of_words(at(kSelfLink), at(kNextLink), at(kPrevLink)); }

  static constexpr uint32_t kCount = 8;
  uint32_t words[kCount];
};

void fill_known(Address p, const Words& words, OpRecord* record, RecordKind result) {
  record->result = result;
  record->size = words.at(kUserSize);
  record->start_addr = p;
}

// Operation and depth are told of a block with a trace only.
void fill_optional(const Words& words, HeaderLayout layout, OpRecord* record) {
  layout.fields = layout.trace() ? layout.fields | kTraceInfoField : layout.fields & ~kTraceInfoField;
  const HeaderFields fields = HeaderFields::read(words.end(), layout);
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
  return layout.lowest_offset(layout.trace() ? entries(depth) : 0);
}

// depth words of the block, at most kMaxTrace, and zeros behind them.
void copy_trace(Address lowest_word, int depth, OpRecord* record) {
  const size_t count = entries(depth) < kMaxTrace ? entries(depth) : kMaxTrace;
  copy_words(lowest_word, static_cast<uint32_t>(count), record->trace);
  memset(record->trace + count, 0, sizeof(uint32_t) * (kMaxTrace - count));
}

}  // namespace

void qr_fill_trace_info(Address p, OpRecord* record, RecordKind result) {
  if (!usable(record)) return;
  const Words words(p);
  fill_known(p, words, record, result);
  if ((words.at(kSelfLink) & ~kLinkFlags) == p) fill_optional(words, words.layout(), record);
}

void qr_fill_trace_info_cfg(Address p, OpRecord* record, RecordKind result) {
  if (!usable(record)) return;
  const Words words(p);
  fill_known(p, words, record, result);
  fill_optional(words, configured_layout(), record);
  if (static_cast<int8_t>(record->stack_depth) > kMaxTrace) record->stack_depth = kMaxTrace;
}

uint32_t qr_trace_offset(Address p, int depth) {
  const Words words(p);
  return (words.at(kSelfLink) & ~kLinkFlags) == p ? trace_offset(words.layout(), depth) : 0;
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

// The trace of one with a large alignment, or at the beginning of a page, may lie where nobody looked; and a faulty
// program may have written a depth since somebody did.
void fill_sound_row(const BoundedBlock& block, OpRecord* record) {
  const Address p = block.p();
  const HeaderFields fields = SoundBlock(p, block.offset(), block.layout(), block.size()).fields();
  const uint32_t depth = fields.info.depth();
  const Address trace = p - block.layout().trace_offset(depth);
  if (depth > kMaxTrace || !on_one_page(p - 4, trace)) return fill_live_row(DoubtfulBlock(p), record);
  record->tid = fields.tid;
  record->time = fields.time;
  record->seq_num = fields.seq_num;
  record->operation = fields.info.operation();
  record->result = kKindAllocated;
  record->from_file = 0;
  record->size = block.size();
  record->start_addr = p;
  set_record_trace(static_cast<const uint32_t*>(pointer_to(trace)), static_cast<int>(depth), record);
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
