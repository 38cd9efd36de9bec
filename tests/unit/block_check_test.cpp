// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/block_check.h"

#include <gtest/gtest.h>

#include "made_block.h"

namespace quarl {
namespace {

TEST(BlockCheck, SoundBlocksOfEverySizeAndLayout) {
  for (uint32_t bits : {0U, +kSlopover, kHeadTid | kSlopover, kHeadTid | kHeadTime | kHeadStackdepth | kSlopover})
    for (Operation op : {kOpMalloc, kOpRealloc, kOpMemalign})
      for (uint32_t size : {0U, 1U, 3U, 4U, 5U, 12U, 13U, 100U, 4089U, 200000U}) {
        const int depth = bits & kHeadStackdepth ? 5 : 0;
        MadeBlock block({Flags(kAll | kMemHead | bits, 0), op, size, depth, op == kOpMemalign ? 6U : 3U});
        EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_NONE) << bits << " " << op << " " << size;
        block.set_chunk(block.chunk() | 5);  // the allocator's other bits do not count
        EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_NONE);
      }
  EXPECT_EQ(qr_check_block(DoubtfulBlock(0)), QR_FAULT_NONE);
}

TEST(BlockCheck, ChunkSizeWithinItsTolerance) {
  const struct {
    Operation op;
    uint32_t align_log2;
    int tolerance;
  } cases[] = {
      {kOpMalloc, 3, 8}, {kOpRealloc, 3, 16}, {kOpRealloc, 6, 64}, {kOpMemalign, 4, 16}, {kOpMemalign, 8, 256}};
  for (const auto& c : cases)
    for (int sign : {-1, 1}) {
      SCOPED_TRACE(testing::Message() << c.op << " " << c.align_log2 << " " << sign);
      MadeBlock block({.op = c.op, .size = 1000, .align_log2 = c.align_log2});
      const uint32_t chunk = block.chunk();
      block.set_chunk(chunk + static_cast<uint32_t>(sign * c.tolerance));
      EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_NONE);
      block.set_chunk(chunk + static_cast<uint32_t>(sign * (c.tolerance + 8)));
      EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_HEAD);
    }
}

TEST(BlockCheck, MappedChunks) {
  MadeBlock block({.size = 200000});
  const uint32_t pages = (block.chunk() + 4096 + 10) & ~4095U;
  const struct {
    uint32_t chunk;
    FaultCode code;
  } cases[] = {{pages | 2, QR_FAULT_NONE},
               {(pages + 8) | 2, QR_FAULT_NONE},
               {(pages + 16) | 2, QR_FAULT_HEAD},
               {(pages - 4096) | 2, QR_FAULT_HEAD},
               {pages, QR_FAULT_HEAD}};
  for (const auto& c : cases) {
    block.set_chunk(c.chunk);
    EXPECT_EQ(qr_check_block(block.doubtful()), c.code) << std::hex << c.chunk;
  }
  // An aligned block may lie anywhere in its mapping, up to its alignment away from the start.
  MadeBlock aligned({.op = kOpMemalign, .size = 200000, .align_log2 = 6});
  const uint32_t mapping = (aligned.chunk() + 4096 + 10) & ~4095U;
  for (int away : {0, 56, 120, -56, -120}) {
    aligned.set_chunk((mapping + static_cast<uint32_t>(away)) | 2);
    EXPECT_EQ(qr_check_block(aligned.doubtful()), QR_FAULT_NONE) << away;
  }
  aligned.set_chunk((mapping + 128) | 2);
  EXPECT_EQ(qr_check_block(aligned.doubtful()), QR_FAULT_HEAD);
}

TEST(BlockCheck, MappedChunkOfABlockAlignedTo16) {
  MadeBlock block({.op = kOpMemalign, .size = 200000, .align_log2 = 4});
  const uint32_t mapping = ((block.chunk() + 4096 + 10) & ~4095U) - 24;
  for (int away : {0, 16, -16}) {
    block.set_chunk((mapping + static_cast<uint32_t>(away)) | 2);
    EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_NONE) << away;
  }
  block.set_chunk((mapping + 24) | 2);
  EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_HEAD);
}

TEST(BlockCheck, OrderOfTheRules) {
  MadeBlock block({});
  for (int i = 0; i < 4; ++i) {
    block.bytes()[100 + i] ^= 1;
    EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_TAIL) << i;
    block.bytes()[100 + i] ^= 1;
  }
  block.bytes()[100] = 0;
  block.set_chunk(block.chunk() + 64);
  EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_HEAD);
  header::word(block.p, kSelfLink) = QR_FREED_MARK | 1;
  EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_DOUBLE_FREE) << "the marker is odd already";
  header::word(block.p, kSelfLink) = QR_FREED_MARK & ~1U;
  EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_HEAD) << "all of its bits count";
  header::word(block.p, kSelfLink) = block.p + 4;
  EXPECT_EQ(qr_check_block(block.doubtful()), QR_FAULT_HEAD);
}

}  // namespace
}  // namespace quarl
