// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/growth_watch.h"

#include <algorithm>

namespace quarl::report {
namespace {

constexpr size_t kMaxSnapshots = 256;
constexpr size_t kRecordPoints = 32;  // of a record log, as many records apart each

}  // namespace

std::vector<const Snapshot*> growth_snapshots(const Log& log) {
  std::vector<const Snapshot*> all, chosen;
  for (const Snapshot& snapshot : log.snapshots()) {
    if (snapshot.records != 0) all.push_back(&snapshot);
  }
  const size_t step = (all.size() + kMaxSnapshots - 1) / kMaxSnapshots;
  for (size_t index = 0; index < all.size(); ++index) {
    if (index % step == 0 || index + 1 == all.size()) chosen.push_back(all[index]);
  }
  return chosen;
}

void GrowthWatch::passed(const OpRecord& record, const Ledger& ledger) {
  const uint64_t done = uint64_t{ledger.taken()} + 1;
  latest_ = std::max(latest_, record.time);
  if (done * kRecordPoints / records_ == (done - 1) * kRecordPoints / records_) return;
  growth_.add(latest_, subject_.sites_now(grouping_));
}

}  // namespace quarl::report
