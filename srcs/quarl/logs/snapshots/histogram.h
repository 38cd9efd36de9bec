// SPDX-License-Identifier: Apache-2.0
// The size histogram of unfreed memory.
#pragma once

#include <cstdint>

namespace quarl {

// Levels by bytes requested: below 100, 1000, 10000, 100000, and the rest.
class Histogram {
 public:
  void add(uint32_t size) { ++counts_[(size >= 100) + (size >= 1000) + (size >= 10000) + (size >= 100000)]; }

  // The table, or that there is nothing when `live` is 0; only while QUARL_PRINT_PROFINFO and QUARL_PROF are in force.
  // Not all that lives is in the table: a block that is a mapping of its own is counted by that one.
  void print_if_wanted(uint32_t live) const;

 private:
  static constexpr int kLevels = 5;

  void print() const;

  int counts_[kLevels] = {};
};

}  // namespace quarl
