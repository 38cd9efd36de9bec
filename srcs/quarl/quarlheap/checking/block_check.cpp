// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/block_check.h"

#include <unistd.h>

namespace quarl {
namespace {

// Alignment that the size rule allows for, 0 for a block without one.
uint32_t recorded_alignment(TraceInfo info) {
  if (!op_has_trace_info(info.operation())) return 0;
  const uint32_t log2 = info.align_log2();
  return log2 == 0 || log2 >= 32 ? 0 : 1U << log2;
}

uint32_t expected_mapping(uint32_t chunk, uint32_t alignment, uint32_t actual) {
  uint32_t expected = mapping_size_for(chunk, static_cast<uint32_t>(getpagesize()));
  if (alignment == 16) return expected - 24;
  if (alignment == 0) return expected;
  const auto difference = static_cast<int32_t>(expected) - static_cast<int32_t>(actual);
  if (difference < 0) expected += alignment - 8;
  if (difference > 0) expected -= alignment - 8;
  return expected;
}

// Whether the allocator's chunk is one that the header implies, off by no more than the allocator's own rounding.
bool size_tolerable(ChunkWord chunk, uint32_t expected, uint32_t alignment) {
  if (chunk.mapped()) expected = expected_mapping(expected, alignment, chunk.size());
  const int32_t tolerance = alignment == 0 ? 8 : static_cast<int32_t>(alignment > 16 ? alignment : 16);
  const auto difference = static_cast<int32_t>(chunk.size() - expected);
  return difference <= tolerance && difference >= -tolerance;
}

}  // namespace

bool chunk_tolerable(Address p, uint32_t offset, HeaderLayout layout) {
  const ChunkWord chunk = chunk_before(p - offset);
  if (!chunk.mapped() && !raw_is_aligned(p - offset)) return false;
  const uint32_t request = raw_size(p, offset, layout), alignment = recorded_alignment(header::trace_info(p, layout));
  return size_tolerable(chunk, chunk_size_for(request), alignment) ||
         (allocator_bytes != 0 && size_tolerable(chunk, chunk_size_for(request + allocator_bytes), alignment));
}

FaultCode qr_check_block(DoubtfulBlock block) {
  if (block.is_null()) return QR_FAULT_NONE;
  if (block.is_freed()) return QR_FAULT_DOUBLE_FREE;
  if (!block.names_itself() || !block.can_be_block() || has_wild_link(block)) return QR_FAULT_HEAD;
  return check_linked_block(block.bounded());
}

}  // namespace quarl
