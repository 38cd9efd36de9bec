// How many held blocks and mappings fall into each of the five size levels that the library prints at exit.
#pragma once

#include <array>

#include "report/analysis/ledger.h"
#include "report/analysis/site.h"

namespace quarl::report {

struct Level {
  uint64_t from = 0;  // bytes, both ends included
  uint64_t to = 0;    // UINT64_MAX for the last level
  Usage usage;
};

using Histogram = std::array<Level, 5>;

Histogram build_histogram(const Ledger& ledger);

// "100 - 999", "100000 or more".
std::string name_of(const Level& level);

}  // namespace quarl::report
