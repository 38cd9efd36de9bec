#include "quarlheap/checking/block_check.h"

#include <unistd.h>

#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

// Alignment that the size rule allows for, 0 for a block without one.
uint32_t recorded_alignment(const BoundedBlock& block) {
  const TraceInfo info = block.info();
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
bool size_tolerable(const BoundedBlock& block, ChunkWord chunk, uint32_t expected) {
  const uint32_t alignment = recorded_alignment(block);
  if (chunk.mapped()) expected = expected_mapping(expected, alignment, chunk.size());
  const int32_t tolerance = alignment == 0 ? 8 : static_cast<int32_t>(alignment > 16 ? alignment : 16);
  const auto difference = static_cast<int32_t>(chunk.size() - expected);
  return difference <= tolerance && difference >= -tolerance;
}

}  // namespace

bool chunk_tolerable(BoundedBlock block) {
  const ChunkWord chunk = block.chunk();
  if (!chunk.mapped() && !block.raw_is_aligned()) return false;
  return size_tolerable(block, chunk, expected_chunk(block));
}

FaultCode qr_check_block(DoubtfulBlock block) {
  if (block.is_null()) return QR_FAULT_NONE;
  if (block.is_freed()) return QR_FAULT_DOUBLE_FREE;
  if (!block.names_itself() || !block.can_be_block() || has_wild_link(block)) return QR_FAULT_HEAD;
  return check_linked_block(block.bounded());
}

}  // namespace quarl
