// What the library counted.
#pragma once

#include <algorithm>

#include "quarl/logs/format.h"

namespace quarl::report {

// True when it counted at all (QUARL_PROF was on).
inline bool has_counts(const ProfInfo& statistics) {
  return std::any_of(std::begin(statistics.calls), std::end(statistics.calls),
                     [](uint32_t calls) { return calls != 0; });
}

}  // namespace quarl::report
