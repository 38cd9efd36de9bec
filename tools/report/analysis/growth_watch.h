// SPDX-License-Identifier: Apache-2.0
// Where growth is looked at: which snapshots of a chain, and which moments of a record log.
#pragma once

#include "report/analysis/growth.h"
#include "report/analysis/subject.h"

namespace quarl::report {

// In how many a trend can be seen.
inline constexpr size_t kFewestSnapshots = 3;

// The snapshots with records; of long chains every n-th, and the last.
std::vector<const Snapshot*> growth_snapshots(const Log& log);

// Looks at a record log from time to time while it is read.
class GrowthWatch : public HeldWatcher {
 public:
  // Both must outlive it.
  GrowthWatch(Growth& growth, Subject& subject, Grouping grouping)
      : growth_(growth), subject_(subject), grouping_(grouping), records_(subject.snapshot().records) {}
  void came(const LiveEntry&, const OpRecord&) override {}
  void went(const LiveEntry&, Going, const OpRecord&) override {}
  void passed(const OpRecord& record, const Ledger& ledger) override;

 private:
  Growth& growth_;
  Subject& subject_;
  Grouping grouping_;
  uint64_t records_;
  uint32_t latest_ = 0;
};

}  // namespace quarl::report
