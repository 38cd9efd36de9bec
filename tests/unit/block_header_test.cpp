// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/block_header.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "made_block.h"
#include "platform/thread_cache.h"
#include "quarlheap/model/used_list.h"
#include "state/clock.h"

namespace quarl {
namespace {

constexpr uint32_t kItems[] = {kHeadTid, kHeadTime, kHeadStackdepth, kSlopover};

Flags flags_of(unsigned mask) {
  uint32_t bits = kAll | kMemHead;
  for (unsigned i = 0; i < 4; ++i)
    if (mask >> i & 1) bits |= kItems[i];
  return Flags(bits, 0);
}

TEST(HeaderSize, AddsUpItsParts) {
  const struct {
    uint32_t bits;
    Operation op;
    int depth;
    uint32_t size, offset;
  } cases[] = {
      {kAll, kOpMalloc, 0, 0, 0},
      {kMemHead, kOpMalloc, 0, 0, 0},
      {kAll | kMemHead, kOpMalloc, 0, 16, 16},
      {kAll | kMemHead | kSlopover, kOpMalloc, 0, 20, 16},
      {kAll | kMemHead, kOpRealloc, 0, 20, 24},
      {kAll | kMemHead | kHeadTid | kHeadTime, kOpMemalign, 0, 32, 32},
      {kAll | kMemHead | kHeadTid | kHeadTime | kHeadStackdepth | kSlopover, kOpMalloc, 8, 68, 64},
      {kAll | kMemHead | kHeadTid | kHeadTime | kHeadStackdepth | kSlopover, kOpMalloc, 64, 292, 288},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    EXPECT_EQ(header_size(Flags(c.bits, 0), c.op, c.depth), c.size);
    EXPECT_EQ(place_block(Flags(c.bits, 0), c.op, c.depth).offset, c.offset);
  }
}

// Every layout, written and read back: no field overlaps another and the offset is found again from the block alone.
TEST(Header, ReadsBackWhatWasWritten) {
  for (unsigned mask = 0; mask < 16; ++mask)
    for (Operation op : {kOpMalloc, kOpRealloc, kOpMemalign})
      for (int depth : {0, 1, 7, 64})
        for (uint32_t log2 : {3U, 4U, 6U, 12U}) {
          const bool traced = mask >> 2 & 1;
          if ((depth > 0 && !traced) || (log2 > 3 && op == kOpMalloc)) continue;
          SCOPED_TRACE(testing::Message() << mask << " op " << op << " depth " << depth << " log2 " << log2);
          const MadeBlock block({flags_of(mask), op, 33, depth, log2});
          const HeaderLayout layout = block.sound().layout();
          EXPECT_EQ(block.doubtful().bounded().offset(), block.placement.offset);
          EXPECT_EQ(block.p % (1U << log2), 0U);
          EXPECT_EQ(block.sound().size(), 33U);
          EXPECT_EQ(layout.tid(), (mask & 1) != 0);
          EXPECT_EQ(layout.time(), (mask >> 1 & 1) != 0);
          EXPECT_EQ(layout.trace(), traced);
          EXPECT_EQ(layout.trace_info(), traced || op != kOpMalloc);
          EXPECT_EQ(layout.guard(), (mask >> 3 & 1) != 0);
          const HeaderFields fields = block.sound().fields();
          EXPECT_EQ(fields.tid, layout.tid() ? static_cast<uint32_t>(current_tid()) : 0U);
          EXPECT_EQ(fields.seq_num, layout.time() ? last_seq_num : 0U);
          EXPECT_EQ(fields.info.word,
                    layout.trace_info() ? static_cast<uint32_t>(depth) | op * 0x100U | log2 << 16 : 0U);
          EXPECT_EQ(memcmp(block.sound().trace_words(), block.trace.words, static_cast<size_t>(depth) * 4), 0);
          EXPECT_EQ(memcmp(block.bytes() + 33, kTailGuard, 4) == 0, (mask >> 3 & 1) != 0);
          EXPECT_EQ(block.bytes()[32], 0xCC);
        }
}

TEST(UsedList, KeepsItsOrderThroughEveryRemoval) {
  for (const std::vector<int>& removals : {std::vector<int>{0, 1, 2}, {2, 1, 0}, {1, 0, 2}, {1, 2, 0}}) {
    std::vector<std::unique_ptr<MadeBlock>> blocks(3);
    for (auto& block : blocks) block = std::make_unique<MadeBlock>(BlockShape{});
    const ScopedLock lock;
    for (auto& block : blocks) link_block(block->sound());
    std::vector<Address> left = {blocks[0]->p, blocks[1]->p, blocks[2]->p};
    for (int index : removals) {
      const SoundBlock gone = blocks[static_cast<size_t>(index)]->sound();
      unlink_block(gone, ties_of(gone.p()));
      left.erase(std::find(left.begin(), left.end(), gone.p()));
      std::vector<Address> walked, back;
      for (BlockWalk walk; walk.here(); walk.step()) walked.push_back(walk.block().p());
      for (Address p = heap_block_tail; p != 0; p = header::link(p, kPrevLink)) back.insert(back.begin(), p);
      EXPECT_EQ(walked, left);
      EXPECT_EQ(back, left);
      for (Address p : left) {  // flags of the links survive
        const HeaderLayout layout = DoubtfulBlock(p).claimed_layout();
        EXPECT_TRUE(layout.time() && layout.trace() && layout.tid());
      }
    }
  }
}

bool whole_list_is_met() REQUIRES(hook_mutex) {
  BlockWalk walk;
  while (walk.here()) walk.step();
  return walk.met_whole_list();
}

// What a link on the list names beside its blocks makes a search look further.
TEST(UsedList, IsWholeWhenEveryLinkIsAnswered) {
  std::vector<std::unique_ptr<MadeBlock>> blocks(3);
  for (auto& block : blocks) block = std::make_unique<MadeBlock>(BlockShape{});
  const MadeBlock elsewhere(BlockShape{});
  const ScopedLock lock;
  EXPECT_FALSE(whole_list_is_met());
  for (auto& block : blocks) link_block(block->sound());
  EXPECT_TRUE(whole_list_is_met());
  for (auto& block : blocks)
    for (HeaderWord link : {kSelfLink, kNextLink, kPrevLink}) {
      const uint32_t before = header::word(block->p, link);
      for (uint32_t flags : {0U, 3U}) {
        header::word(block->p, link) = elsewhere.p | flags;
        EXPECT_EQ(whole_list_is_met(), link == kSelfLink && block == blocks[0]) << "nobody follows a link to the first";
      }
      header::word(block->p, link) = before;
      EXPECT_TRUE(whole_list_is_met());
    }
  const Address tail = heap_block_tail;
  heap_block_tail = blocks[1]->p;
  EXPECT_FALSE(whole_list_is_met());
  heap_block_tail = tail;
  for (auto& block : blocks) unlink_block(block->sound(), ties_of(block->p));
}

}  // namespace
}  // namespace quarl
