// SPDX-License-Identifier: Apache-2.0
// What was live at the highest point of a record log, found in one pass. Grows with what is held at once.
#pragma once

#include <vector>

#include "report/analysis/ledger.h"

namespace quarl::report {

class PeakWatch : public HeldWatcher {
 public:
  void came(const LiveEntry&, const OpRecord&) override {}
  void went(const LiveEntry& entry, Going how, const OpRecord& by) override;
  void passed(const OpRecord& record, const Ledger& ledger) override;

  // Heap blocks and anonymous mappings, in bytes; the first moment that had so many is meant.
  uint64_t bytes() const { return bytes_; }
  // Of the record that reached it; its numbers are 0 where they were not recorded.
  const OpRecord& record() const { return record_; }

  // Visits what was live then, once each; to be called after the last record that `ledger` takes.
  template <typename Visit>
  void for_each(const Ledger& ledger, Visit visit) const {
    for (const LiveEntry& entry : gone_) visit(entry);
    ledger.for_each_held([&](const LiveEntry& entry) {
      if (bytes_ != 0 && entry.born <= at_) visit(entry);
    });
  }

 private:
  uint64_t bytes_ = 0;
  uint32_t at_ = 0;  // records that the ledger had taken before that of the highest point
  OpRecord record_ = {};
  std::vector<LiveEntry> gone_;  // was live at the highest point, and is not any more
};

}  // namespace quarl::report
