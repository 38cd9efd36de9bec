// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/site_sums.h"

namespace quarl::report {

uint32_t SiteSums::key_of(const LiveEntry& entry) const {
  if (grouping_ == Grouping::kThread) return entry.tid;
  return grouping_ == Grouping::kSize ? entry.size : entry.trace;
}

void SiteSums::fill(SiteTable& table) const {
  for (const auto& [key, sum] : sums_) table.add(groups_by_trace(grouping_) ? key : 0, key, key, sum);
}

}  // namespace quarl::report
