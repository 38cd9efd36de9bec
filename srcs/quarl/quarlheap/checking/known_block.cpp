// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/known_block.h"

#include "platform/code_map.h"
#include "quarlheap/checking/block_check.h"
#include "quarlheap/model/operation_name.h"
#include "state/clock.h"

namespace quarl {
namespace {

HeaderLayout configured_layout() {
  return HeaderLayout::configured(Flags());
}

// Numbers that a header can have. Sequence numbers come round, in a process that runs for long: of a header that is
// whole they need not be asked.
bool can_be(const OpRecord& row) REQUIRES(hook_mutex) {
  const bool made = row.operation <= kOpMemalign && row.operation != kOpFree;
  return made && row.stack_depth <= kMaxTrace && row.seq_num <= last_seq_num;
}

// By its own flags, or by those that it ought to have where they are overwritten.
bool fill_row_that_fits(DoubtfulBlock block, OpRecord* row) REQUIRES(hook_mutex) {
  if (block.names_itself() && header_fits(block.bounded())) {
    fill_fault_row(block, kKindSlopTail, row);
    return true;
  }
  if (!header_fits(block.bounded_by(configured_layout()))) return false;
  fill_fault_row(block, kKindSlopHead, row);
  return true;
}

// The links name the layout, and lead to where blocks are: nobody wrote over them. Either the size or the chunk word is
// wrong then.
bool is_whole_but_size(DoubtfulBlock block) REQUIRES(hook_mutex) {
  return block.names_itself() && block.bounded() && !has_wild_link(block);
}

// The chunk of a released block is as it was, or one with what is free behind it.
bool chunk_holds(Address p, uint32_t offset, HeaderLayout layout) {
  const Address raw = p - offset;
  if (!memory_exists(raw - 4)) return false;
  const ChunkWord chunk = chunk_before(raw);
  if (chunk.mapped()) return false;
  const uint32_t needed = chunk_size_for(raw_size(p, offset, layout));
  return chunk_tolerable(p, offset, layout) || (chunk.size() > needed && memory_exists(raw + chunk.size() - 5));
}

// glibc keeps its lists in the first two words of a released chunk, and of large ones in the next two.
constexpr uint32_t kListBytes = 8;
constexpr uint32_t kLargeListBytes = 16;

uint32_t entries_below(Address end, Address lowest, uint32_t count) {
  const uint32_t entries = end > lowest ? (end - lowest + 3) / 4 : 0;
  return entries < count ? entries : count;
}

// `lowest` is where the trace begins. What glibc writes into a large chunk is no code.
uint8_t lost_entries(const OpRecord& row, Address raw, Address lowest) {
  uint32_t lost = entries_below(raw + kListBytes, lowest, row.stack_depth);
  for (uint32_t i = lost; i < entries_below(raw + kLargeListBytes, lowest, row.stack_depth); ++i) {
    if (code_kind(row.trace[i]) == CodeKind::kNone) lost = i + 1;
  }
  return static_cast<uint8_t>(lost);
}

// The flags of the link that names the block are gone; the others must be those of the configuration.
bool has_flags_of(Address p, HeaderLayout layout) {
  return (header::word(p, kNextLink) & kLinkFlags) == layout.next_flags() &&
         (header::word(p, kPrevLink) & kLinkFlags) == layout.prev_flags();
}

}  // namespace

void know_live(DoubtfulBlock block, KnownBlock* known) {
  known->sized = block.can_be_block() && fill_row_that_fits(block, &known->row);
  known->damaged = !known->sized;
  if (known->sized) {
    known->made = known->row.result == kKindSlopTail || can_be(known->row);
  } else if (block.can_be_block() && is_whole_but_size(block)) {
    fill_live_row(block, &known->row);
    known->made = can_be(known->row);
  }
}

void know_released(DoubtfulBlock block, KnownBlock* known) {
  const Address p = block.p();
  const HeaderLayout layout = configured_layout();
  if (p % 8 != 0 || !layout.trace() || !memory_exists(p - kLongestFields) || !has_flags_of(p, layout)) return;
  const TraceInfo info = header::trace_info(p, layout);
  if (info.depth() > kMaxTrace || info.align_log2() >= 32) return;
  const uint32_t offset = user_offset(layout.lowest_offset(info.depth()), 1U << info.align_log2(), least_alignment);
  if (!chunk_holds(p, offset, layout)) return;
  fill_fault_row(block, kKindSlopHead, &known->row);
  known->sized = known->made = can_be(known->row);
  known->lost = lost_entries(known->row, p - offset, p - layout.trace_offset(info.depth()));
}

void put_known(const Event& event, Address p, const KnownBlock& known) {
  const OpRecord& row = known.row;
  JsonLine& line = event.line().address("address", p);
  if (known.damaged) line.flag("damaged", true);
  if (known.sized) line.number("size", row.size);
  if (!known.made) return;
  line.text("operation", operation_name(row.operation));
  if (row.seq_num != 0) line.number("seq", row.seq_num);
  if (row.tid != 0) line.number("thread", row.tid);
  if (known.lost != 0) line.number("lost", known.lost);
  event.trace("allocated", row.trace + known.lost, static_cast<int8_t>(row.stack_depth) - known.lost);
}

}  // namespace quarl
