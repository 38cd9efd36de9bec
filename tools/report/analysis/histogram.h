// SPDX-License-Identifier: Apache-2.0
// How many blocks and mappings fall into each of the five size levels that the library prints at
// exit.
#pragma once

#include <array>

#include "report/analysis/site.h"

namespace quarl::report {

struct Level {
  uint64_t from = 0;  // bytes, both ends included
  uint64_t to = 0;    // UINT64_MAX for the last level
  Usage usage;
};

using Histogram = std::array<Level, 5>;

Histogram empty_histogram();
// Index of the level that a block of `size` bytes falls into.
size_t level_of(uint32_t size);

// Of all entries with which `for_each` calls the function that it is given.
Histogram build_histogram(const auto& for_each) {
  Histogram levels = empty_histogram();
  for_each([&](const LiveEntry& entry) { levels[level_of(entry.size)].usage += {entry.size, 1}; });
  return levels;
}

// "100 - 999", "100000 or more".
std::string name_of(const Level& level);

}  // namespace quarl::report
