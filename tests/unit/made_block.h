// SPDX-License-Identifier: Apache-2.0
// Blocks made by hand in a buffer, as the hooks and the allocator would make them.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include "quarlheap/model/block_header.h"
#include "quarlheap/model/call_trace.h"
#include "quarlheap/model/new_header.h"
#include "state/hook_lock.h"

namespace quarl {

inline const Flags kFullFlags(kAll | kMemHead | kHeadTid | kHeadTime | kHeadStackdepth | kSlopover, 0);

struct BlockShape {
  Flags flags = kFullFlags;
  Operation op = kOpMalloc;
  uint32_t size = 100;
  int depth = 8;
  uint32_t align_log2 = 3;
};

class MadeBlock {
 public:
  explicit MadeBlock(const BlockShape& shape) : memory_(new uint8_t[kRoom]) {
    memset(memory_.get(), 0xCC, kRoom);
    const uint32_t alignment = 1U << shape.align_log2;
    placement = place_block(shape.flags, shape.op, shape.depth, shape.align_log2);
    raw = round_up(reinterpret_cast<Address>(memory_.get()) + 8, alignment);
    p = raw + placement.offset;
    set_chunk(chunk_for(placement.raw_size(shape.size)));
    trace.depth = shape.depth;
    for (int i = 0; i < shape.depth; ++i) trace.words[i] = 0xABC00000U + static_cast<uint32_t>(i);
    const ScopedLock lock;
    const HeaderLayout layout = HeaderLayout::for_new(shape.flags, shape.op);
    fill_header(p, layout, shape.size, shape.op, placement, trace);
    number_header(p, layout);
    header::word(p, kSelfLink) = p | layout.self_flags();
    header::word(p, kNextLink) = layout.next_flags();
    header::word(p, kPrevLink) = layout.prev_flags();
    last_ = sound().last_byte();
    enter_pages(p, raw - 4, last_);
  }
  ~MadeBlock() {
    const ScopedLock lock;
    leave_pages(p, raw - 4, last_);
  }

  void set_chunk(uint32_t word) { set_chunk_before(raw, {word}); }
  uint32_t chunk() const { return chunk_before(raw).word; }
  DoubtfulBlock doubtful() const { return DoubtfulBlock(p); }
  SoundBlock sound() const { return {p, placement.offset}; }
  uint8_t* bytes() const { return reinterpret_cast<uint8_t*>(p); }

  // The chunk of an allocator that keeps 4 bytes before each block and rounds to 8, at least 16.
  static uint32_t chunk_for(uint32_t request) { return request + 4 <= 16 ? 16 : (request + 4 + 7) / 8 * 8; }

  Placement placement;
  Address raw;
  Address p;
  CallTrace trace;

 private:
  static constexpr size_t kRoom = 400 * 1024;
  std::unique_ptr<uint8_t[]> memory_;
  Address last_;
};

}  // namespace quarl
