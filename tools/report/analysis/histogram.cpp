#include "report/analysis/histogram.h"

#include <fmt/format.h>

namespace quarl::report {
namespace {

Histogram empty_levels() {
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

}  // namespace

Histogram build_histogram(const Ledger& ledger) {
  Histogram levels = empty_levels();
  ledger.for_each_held([&](const LiveEntry& entry) {
    size_t index = 0;
    while (entry.size > levels[index].to) ++index;
    levels[index].usage += {entry.size, 1};
  });
  return levels;
}

std::string name_of(const Level& level) {
  return level.to == UINT64_MAX ? fmt::format("{} or more", level.from) : fmt::format("{} - {}", level.from, level.to);
}

}  // namespace quarl::report
