// The size histogram of unfreed memory.
#pragma once

#include <cstdint>

#include "quarlheap/model/block.h"

namespace quarl {

// Levels by bytes requested: below 100, 1000, 10000, 100000, and the rest.
struct Histogram {
  static constexpr int kLevels = 5;
  int counts[kLevels] = {};

  void add(uint32_t size);
  void print() const;
};

// A block that is a mapping of its own has a mapping record as well, which counts for both.
bool covered_by_mapping_record(Address block);

// Counts everything live and prints the table, or that there is nothing; only while QUARL_PRINT_PROFINFO and
// QUARL_PROF are in force.
void print_unfreed_table() REQUIRES(hook_mutex);
void print_unfreed(const Histogram& histogram, uint32_t live);

}  // namespace quarl
