#include "quarlheap/checking/block_check.h"

#include <string.h>
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

// The chunk that the allocator gives for the bytes that the hook asked of it.
uint32_t expected_chunk(const BoundedBlock& block) {
  return chunk_size_for(block.size() + block.offset() + block.layout().guard_size());
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

bool chunk_fits(const BoundedBlock& block) {
  const ChunkWord chunk = block.chunk();
  const uint32_t expected = expected_chunk(block);
  if (__builtin_expect(chunk.size() == expected && !chunk.mapped(), 1)) return true;
  return size_tolerable(block, chunk, expected);
}

bool guard_intact(const BoundedBlock& block) {
  return memcmp(pointer_to(block.p() + block.size()), kTailGuard, sizeof kTailGuard) == 0;
}

}  // namespace

bool header_fits(const BoundedBlock& block) {
  return block && chunk_fits(block) && block.end_exists();
}

FaultCode check_linked_block(const BoundedBlock& block) {
  if (!header_fits(block)) return QR_FAULT_HEAD;
  if (block.layout().guard && !guard_intact(block)) return QR_FAULT_TAIL;
  return QR_FAULT_NONE;
}

FaultCode qr_check_block(DoubtfulBlock block) {
  if (block.is_null()) return QR_FAULT_NONE;
  if (block.is_freed()) return QR_FAULT_DOUBLE_FREE;
  if (!block.names_itself() || !block.can_be_block() || has_wild_link(block)) return QR_FAULT_HEAD;
  return check_linked_block(block.bounded());
}

}  // namespace quarl
