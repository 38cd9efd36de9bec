#include "logs/mappings/mapping_records.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

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

}  // namespace
}  // namespace quarl
