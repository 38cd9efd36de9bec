#include "quarlheap/checking/block_check.h"

#include <string.h>
#include <unistd.h>

namespace quarl {
namespace {

// Alignment that the size rule allows for, 0 for a block without one.
uint32_t recorded_alignment(Address p) {
  if (!has_trace_info(p)) return 0;
  const TraceInfo info = read_trace_info(p);
  if (info.operation() != kOpMemalign && info.operation() != kOpRealloc) return 0;
  const uint32_t log2 = info.align_log2();
  return log2 == 0 || log2 >= 32 ? 0 : 1U << log2;
}

// The chunk size that the allocator gives for the bytes that the hook asked of it.
uint32_t expected_chunk(Address p, uint32_t offset) {
  const uint32_t bytes = user_size_of(p) + offset + (has_tail_guard(p) ? 15 : 11);
  return bytes > 15 ? bytes & ~7U : 16;
}

uint32_t expected_mapping(uint32_t chunk, uint32_t alignment, uint32_t actual) {
  const auto page = static_cast<uint32_t>(getpagesize());
  uint32_t expected = (chunk + page + 10) & ~(page - 1);
  if (alignment == 16) return expected - 24;
  if (alignment == 0) return expected;
  const auto difference = static_cast<int32_t>(expected) - static_cast<int32_t>(actual);
  if (difference < 0) expected += alignment - 8;
  if (difference > 0) expected -= alignment - 8;
  return expected;
}

// Whether the allocator's chunk is one that the header implies, off by no more than the allocator's own rounding.
bool size_tolerable(Address p, ChunkWord chunk, uint32_t expected) {
  const uint32_t alignment = recorded_alignment(p);
  if (chunk.mapped()) expected = expected_mapping(expected, alignment, chunk.size());
  const int32_t tolerance = alignment == 0 ? 8 : static_cast<int32_t>(alignment > 16 ? alignment : 16);
  const auto difference = static_cast<int32_t>(chunk.size() - expected);
  return difference <= tolerance && difference >= -tolerance;
}

bool chunk_fits(Address p, uint32_t offset) {
  const ChunkWord chunk = chunk_before(p - offset);
  const uint32_t expected = expected_chunk(p, offset);
  if (__builtin_expect(chunk.size() == expected && !chunk.mapped(), 1)) return true;
  return size_tolerable(p, chunk, expected);
}

bool guard_intact(Address p) {
  return memcmp(reinterpret_cast<const void*>(p + user_size_of(p)), kTailGuard, sizeof kTailGuard) == 0;
}

}  // namespace

FaultCode check_block_at(Address p, uint32_t offset) {
  if (!chunk_fits(p, offset)) return QR_FAULT_HEAD;
  if (has_tail_guard(p) && !guard_intact(p)) return QR_FAULT_TAIL;
  return QR_FAULT_NONE;
}

FaultCode qr_check_block(Address p) {
  if (p == 0) return QR_FAULT_NONE;
  if (is_freed(p)) return QR_FAULT_DOUBLE_FREE;
  if (!qr_is_block(p)) return QR_FAULT_HEAD;
  return check_block_at(p, offset_of_block(p));
}

}  // namespace quarl
