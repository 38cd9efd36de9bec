// SPDX-License-Identifier: Apache-2.0
// What a profile tells of each call trace on each thread: what is in use, and what was ever allocated.
#pragma once

#include <map>

#include "report/analysis/turnover.h"

namespace quarl::report {

struct ProfileSample {
  Usage in_use;
  Usage allocated;
};

// By trace and kernel task id.
using ProfileSamples = std::map<std::pair<TraceId, uint32_t>, ProfileSample>;

// Counts what is allocated while a record log is read.
class AllocationSamples : public HeldWatcher {
 public:
  // Both must outlive this; `ledger` is the one that tells it.
  AllocationSamples(Chooser& chooser, const Ledger& ledger) : chooser_(chooser), ledger_(ledger) {}
  void came(const LiveEntry& entry, const OpRecord& by) override;
  void went(const LiveEntry& entry, Going how, const OpRecord& by) override;
  void passed(const OpRecord&, const Ledger&) override {}

  // To be called after the last record.
  ProfileSamples take();

 private:
  void add(const LiveEntry& entry);

  Chooser& chooser_;
  const Ledger& ledger_;
  std::unordered_map<uint64_t, Usage> sums_;  // by trace and thread
};

}  // namespace quarl::report
