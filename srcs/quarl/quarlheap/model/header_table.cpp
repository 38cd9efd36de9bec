// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/header_table.h"

namespace quarl {
namespace {

constexpr const HeaderTable& kTable = kHeaderTable;

// The table says the same as the functions, for every header that there can be.

constexpr bool has(const HeaderLayout& layout, const HeaderFieldRow& field) {
  const uint32_t flags[] = {0, layout.self_flags(), layout.next_flags(), layout.prev_flags()};
  return field.flag_mask == 0 || (flags[field.flag_word] & field.flag_mask) != 0;
}

// Bytes from the user pointer down to the field's lowest word.
constexpr uint32_t offset(const HeaderLayout& layout, int row, uint32_t depth) {
  uint32_t words = 0;
  for (int i = 0; i <= row; ++i) {
    const HeaderFieldRow& field = kTable.fields[i];
    if (has(layout, field)) words += field.words != 0 ? field.words : depth;
  }
  return 4 * words;
}

constexpr bool agrees(const HeaderLayout& layout) {
  constexpr uint32_t kDepth = 5;
  if (offset(layout, 3, 0) != kFixedSize) return false;
  if (layout.tid() && offset(layout, 4, 0) != layout.tid_offset()) return false;
  if (layout.time() && offset(layout, 5, 0) != layout.seq_offset()) return false;
  if (layout.time() && offset(layout, 6, 0) != layout.time_offset()) return false;
  if (layout.trace_info() && offset(layout, 7, 0) != layout.trace_info_offset()) return false;
  return offset(layout, 8, kDepth) == layout.lowest_offset(layout.trace() ? kDepth : 0);
}

constexpr bool agrees_everywhere() {
  for (uint32_t fields = 0; fields < kFieldsSize.size(); ++fields) {
    const HeaderLayout layout{fields};
    if ((layout.trace_info() || !layout.trace()) && !agrees(layout)) return false;
  }
  return true;
}
static_assert(agrees_everywhere());
static_assert(TraceInfo::make(1, kOpRealloc, 1).word ==
              (1U << kTable.depth_shift | 1U << kTable.op_shift | 1U << kTable.align_shift));

}  // namespace
}  // namespace quarl

// Nothing in the library refers to it.
extern "C" {
extern const quarl::HeaderTable qr_header_table;
[[gnu::section(".quarl_header"), gnu::used]] const quarl::HeaderTable qr_header_table = quarl::kHeaderTable;
}
