// SPDX-License-Identifier: Apache-2.0
#include "logs/mappings/mapping_records.h"

#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>

#include <random>
#include <vector>

#include "logs/mappings/unmappings.h"

namespace quarl {
namespace {

// Walks the list in use, oldest first, as a release is defined to do.
TraceInfoEntry* walk(uint32_t address, uint32_t length) {
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) {
    const OpRecord& record = entry->record;
    if (record.start_addr == address && record.size == length) return entry;
    if (record.start_addr == address) continue;
    if (record.from_file == 0 && record.start_addr + record.size == address + length) return entry;
  }
  return nullptr;
}

int pages() {
  int count = 0;
  uint32_t used = 0;
  for (RecordPage* page = qr_mmap_block_head; page != nullptr; page = page->next, ++count) used += page->used;
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) --used;
  EXPECT_EQ(used, 0U) << "the pages' counts and the list in use";
  return count;
}

// Regions that share their starts and ends all the time, first few and then thousands of them at once.
TEST(MappingRecords, FindWhatAWalkAlongTheListFinds) {
  const ScopedLock lock;
  set_up_record_pages();
  std::mt19937 random(7);
  std::vector<OpRecord> made;
  size_t live = 0;
  int found = 0;
  for (int step = 0; step < 30000; ++step) {
    const bool many = step > 10000 && step < 20000;
    const auto place = [&] { return 0x10000000U + random() % (many ? 2000 : 40) * 4096; };
    const auto length = [&] { return static_cast<uint32_t>(random() % 4 + 1) * 4096; };
    if (live < (many ? 2000U : 30U) && random() % 3 != 0) {
      TraceInfoEntry* entry = take_mapping_entry();
      ASSERT_NE(entry, nullptr);
      entry->record.start_addr = place();
      entry->record.size = length();
      entry->record.from_file = random() % 3 == 0;
      index_mapping(entry);
      made.push_back(entry->record);
      ++live;
      continue;
    }
    OpRecord aim{};
    aim.size = length();
    aim.start_addr = place();
    if (!made.empty() && random() % 2 == 0) aim = made[random() % made.size()];
    TraceInfoEntry* expected = walk(aim.start_addr, aim.size);
    ASSERT_EQ(find_mapping(aim.start_addr, aim.size), expected) << step;
    if (expected == nullptr) continue;
    ++found;
    --live;
    release_mapping_entry(expected);
    if (step % 500 == 0) {
      EXPECT_GE(pages() * QR_TRACEINFO_NUM, static_cast<int>(live));
    }
  }
  EXPECT_GT(found, 3000);
  while (useed_head != nullptr) release_mapping_entry(useed_head);
  EXPECT_EQ(pages(), 0);
  EXPECT_EQ(unuse_head, nullptr);
}

TraceInfoEntry* made(uint32_t address, uint32_t length, uint8_t from_file = 0) {
  const ScopedLock lock;
  TraceInfoEntry* entry = take_mapping_entry();
  entry->record.start_addr = address;
  entry->record.size = length;
  entry->record.from_file = from_file;
  index_mapping(entry);
  return entry;
}

// Begins as another thread, as unmappings that are under way at the same time do.
Unmapping begun(uint32_t address, uint32_t length) {
  static int others = 1 << 24;
  const int own = current_tid();
  thread_cache().tid = ++others;
  Unmapping unmapping{};
  {
    const ScopedLock lock;
    unmapping = unmappings.begin(address, length);
  }
  thread_cache().tid = own;
  return unmapping;
}

TEST(Unmappings, LeaveTheOthersRecordsAlone) {
  set_up_record_pages();
  TraceInfoEntry* older = made(0x10000, 0x3000, 1);
  const Unmapping first = begun(0x10000, 0x3000);
  TraceInfoEntry* newer = made(0x10000, 0x3000);  // at the addresses that the first has freed
  TraceInfoEntry* same_end = made(0x12000, 0x1000);
  const Unmapping second = begun(0x10000, 0x3000);
  const Unmapping third = begun(0x11000, 0x2000);  // by its end
  const Unmapping nobodys = begun(0x11000, 0x2000);
  EXPECT_EQ((std::vector<uint32_t>{first.size, second.size, third.size, nobodys.size}),
            (std::vector<uint32_t>{0x3000, 0x3000, 0x1000, 0x2000}));
  EXPECT_EQ((std::vector<bool>{first.from_file, second.from_file, third.from_file}),
            (std::vector<bool>{true, false, false}));

  const ScopedLock lock;
  EXPECT_EQ(useed_head, older);  // all are on the list still, for snapshots
  EXPECT_EQ(useed_tail, same_end);
  unmappings.end(second, false);
  EXPECT_EQ(find_mapping(0x10000, 0x3000), newer);
  unmappings.end(first, false);  // older than that, as before
  EXPECT_EQ(find_mapping(0x10000, 0x3000), older);
  unmappings.end(third, true);
  unmappings.end(nobodys, true);
  EXPECT_EQ(useed_tail, newer);
  resize_mapping_entry(older, 0x2000);
  EXPECT_EQ(find_mapping(0x10000, 0x2000), older);
  release_all_record_pages();
}

// In a child the unmappings of the parent's other threads end as they did there; that of the thread that forked goes
// on.
TEST(Unmappings, EndInAChildAsInTheParent) {
  set_up_record_pages();
  made(0x10000, 0x1000);
  made(0x20000, 0x2000);
  made(0x30000, 0x3000);
  const Unmapping gone = begun(0x10000, 0x1000);
  begun(0x20000, 0x2000);  // whose result is not known
  unmappings.tell_result(gone, true);
  const ScopedLock lock;
  const Unmapping own = unmappings.begin(0x30000, 0x3000);
  unmappings.await_results();
  Unmapping left{};
  bool unmapped = false;
  uint32_t ended = 0;
  while (unmappings.end_left_behind(current_tid(), &left, &unmapped)) ended += unmapped ? left.size : 0;
  EXPECT_EQ(ended, 0x1000U);
  EXPECT_NE(find_mapping(0x20000, 0x2000), nullptr);
  EXPECT_EQ(find_mapping(0x30000, 0x3000), nullptr);
  unmappings.end(own, false);
  EXPECT_NE(find_mapping(0x30000, 0x3000), nullptr);
  release_all_record_pages();
}

// More at once than there are places: the record of the last is off the list before the call.
TEST(Unmappings, ManyAtOnce) {
  constexpr uint32_t kMany = 1030;
  set_up_record_pages();
  for (uint32_t i = 0; i < kMany; ++i) made(i * 0x10000, 0x1000);
  std::vector<Unmapping> under_way;
  for (uint32_t i = 0; i < kMany; ++i) under_way.push_back(begun(i * 0x10000, 0x1000));
  EXPECT_EQ(under_way.back().size, 0x1000U);
  const ScopedLock lock;
  for (const Unmapping& unmapping : under_way) unmappings.end(unmapping, true);
  EXPECT_EQ(useed_head, nullptr);
  release_all_record_pages();
}

// A program may map over a part of a page, or over all of what holds the records; they are elsewhere then, the same.
TEST(MappingRecords, MoveOutOfTheApplicationsWay) {
  constexpr uint32_t kMany = 700;
  set_up_record_pages();
  for (uint32_t i = 0; i < kMany; ++i) made(i * 0x10000, 0x1000);
  const Unmapping under_way = begun(0, 0x1000);
  const ScopedLock lock;
  for (int round = 0; round < 3; ++round) {
    std::vector<AddressRange> wanted;
    for (RecordPage* page = qr_mmap_block_head; page != nullptr; page = page->next) {
      wanted.push_back({address_of(page) + 4096U * round, 4096});
    }
    for (const AddressRange& range : wanted) {
      ASSERT_TRUE(leave_to_application(range));
      memset(pointer_to(range.start), 0x5A, range.size);  // it is mapped still, and nobody's
    }
    for (const AddressRange& range : wanted) munmap(pointer_to(range.start), range.size);
  }
  unmappings.end(under_way, false);
  uint32_t seen = 0;
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next, ++seen) {
    ASSERT_EQ(find_mapping(entry->record.start_addr, 0x1000), entry);
    ASSERT_EQ(entry->record.start_addr, seen * 0x10000);
  }
  EXPECT_EQ(seen, kMany);
  while (useed_tail != nullptr) release_mapping_entry(useed_tail);
  EXPECT_EQ(pages(), 0);
  release_all_record_pages();
}

}  // namespace
}  // namespace quarl
