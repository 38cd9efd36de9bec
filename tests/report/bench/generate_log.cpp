// SPDX-License-Identifier: Apache-2.0
// Writes a record log of any length for measuring: a program that holds some ten thousand blocks, asked for from a few
// thousand places, in a steady state of allocating and releasing.
//
// Usage: generate_log RECORDS FILE
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "quarl/logs/format.h"

namespace {

using quarl::LogHeader;
using quarl::OpRecord;

constexpr uint32_t kMapsSize = 32 * 1024;
constexpr size_t kHeld = 20000;
constexpr size_t kPlaces = 3000;
constexpr uint8_t kDepth = 8;
constexpr uint64_t kRecordsPerSecond = 50000;

LogHeader make_header() {
  LogHeader header = {};
  memcpy(header.magic, quarl::kLogMagic, sizeof(header.magic));
  header.byte_order = quarl::kLittleEndian;
  strcpy(header.proc_name, "generated");
  header.pid = 1;
  header.thread_slots = quarl::kThreadSlots;
  header.trace_depth = quarl::kMaxTrace;
  header.maps_offset = sizeof(LogHeader);
  header.stats_offset = header.maps_offset + kMapsSize;
  header.threads_offset = header.stats_offset + sizeof(quarl::ProfInfo);
  header.records_offset = header.threads_offset + quarl::kThreadTableSize;
  header.snapshot_number = 1;
  header.time = 1;
  return header;
}

class Program {
 public:
  const OpRecord& next() {
    bool release = blocks_.size() >= kHeld || (blocks_.size() > kHeld / 2 && random_() % 2 == 0);
    ++sequence_;
    release ? release_one() : allocate_one();
    record_.tid = 100 + random_() % 8;
    record_.time = 1'700'000'000 + static_cast<uint32_t>(sequence_ / kRecordsPerSecond);
    record_.seq_num = static_cast<uint32_t>(sequence_);
    record_.stack_depth = kDepth;
    return record_;
  }

 private:
  struct Block {
    uint32_t address, size;
  };

  void take_trace() {
    uint32_t place = random_() % kPlaces;
    for (int level = 0; level < kDepth; ++level)
      record_.trace[level] = 0x10000 + (place >> level) * 64 + static_cast<uint32_t>(level);
  }

  void allocate_one() {
    Block block = {0x08000000 + address_++ % 4'000'000 * 64, 8 + static_cast<uint32_t>(random_() % 500)};
    blocks_.push_back(block);
    record_.operation = quarl::kOpMalloc;
    record_.result = quarl::kKindAllocated;
    record_.start_addr = block.address;
    record_.size = block.size;
    take_trace();
  }

  void release_one() {
    size_t index = random_() % blocks_.size();
    record_.operation = quarl::kOpFree;
    record_.result = quarl::kKindReleased;
    record_.start_addr = blocks_[index].address;
    record_.size = blocks_[index].size;
    blocks_[index] = blocks_.back();
    blocks_.pop_back();
    take_trace();
  }

  std::minstd_rand random_{1};
  std::vector<Block> blocks_;
  OpRecord record_ = {};
  uint64_t sequence_ = 0;
  uint32_t address_ = 0;
};

bool write_log(FILE* file, uint64_t records) {
  LogHeader header = make_header();
  std::vector<char> sections(header.records_offset - sizeof(header));
  bool written =
      fwrite(&header, sizeof(header), 1, file) == 1 && fwrite(sections.data(), sections.size(), 1, file) == 1;
  Program program;
  for (uint64_t index = 0; written && index < records; ++index)
    written = fwrite(&program.next(), sizeof(OpRecord), 1, file) == 1;
  return written;
}

}  // namespace

int main(int count, char** arguments) {
  FILE* file = count == 3 ? fopen(arguments[2], "wb") : nullptr;
  if (file == nullptr) {
    fprintf(stderr, "usage: generate_log RECORDS FILE\n");
    return 2;
  }
  bool written = write_log(file, strtoull(arguments[1], nullptr, 10));
  bool closed = fclose(file) == 0;
  return written && closed ? 0 : 1;
}
