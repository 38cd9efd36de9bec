// SPDX-License-Identifier: Apache-2.0
// What changed between two groupings of what is held.
#pragma once

#include <vector>

#include "report/analysis/site.h"

namespace quarl::report {

enum class Change { kNew, kGrown, kShrunk, kGone };

// "new", "grew", "shrank" or "gone".
const char* name_of(Change change);

struct SiteDifference {
  Change change;
  Site site;  // of the later side, or of the earlier one when it is gone
  Usage before;
  Usage after;
  int64_t bytes() const { return static_cast<int64_t>(after.bytes - before.bytes); }
  int64_t count() const { return static_cast<int64_t>(after.count - before.count); }
};

// Sites whose bytes and count are the same are left out. The largest growth comes first, the largest loss last.
std::vector<SiteDifference> difference(const std::vector<Site>& before, const std::vector<Site>& after);

}  // namespace quarl::report
