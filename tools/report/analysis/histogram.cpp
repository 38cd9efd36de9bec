// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/histogram.h"

#include <fmt/format.h>

namespace quarl::report {
Histogram empty_histogram() {
  Histogram levels;
  uint64_t bound = 0;
  for (Level& level : levels) {
    level.from = bound;
    bound = bound == 0 ? 100 : bound * 10;
    level.to = bound - 1;
  }
  levels.back().to = UINT64_MAX;
  return levels;
}

size_t level_of(uint32_t size) {
  static const Histogram kLevels = empty_histogram();
  size_t index = 0;
  while (size > kLevels[index].to) ++index;
  return index;
}

std::string name_of(const Level& level) {
  return level.to == UINT64_MAX ? fmt::format("{} or more", level.from) : fmt::format("{} - {}", level.from, level.to);
}

}  // namespace quarl::report
