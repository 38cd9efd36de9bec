// SPDX-License-Identifier: Apache-2.0
// Everything that was ever allocated, by site: who asks for most bytes, and most often.
#pragma once

#include "report/analysis/ledger.h"
#include "report/analysis/selection.h"
#include "report/analysis/site_sums.h"

namespace quarl::report {

// A resize counts as one call, with all bytes of the new block. A block that a failed resize put back counts once; the
// mapping that the allocator made for a large block does not count beside it.
class Turnover : public HeldWatcher {
 public:
  // Both must outlive this; `ledger` is the one that tells it.
  Turnover(Grouping grouping, Chooser& chooser, const Ledger& ledger)
      : chooser_(chooser), ledger_(ledger), sums_(grouping) {}
  void came(const LiveEntry& entry, const OpRecord& by) override;
  void went(const LiveEntry& entry, Going how, const OpRecord& by) override;
  void passed(const OpRecord&, const Ledger&) override {}

  // Before the first record: who is to be told of each block that counts.
  void tell(SiteSums::Listener listener) { sums_.tell(std::move(listener)); }
  // To be called after the last record.
  void fill(SiteTable& table);

 private:
  void add(const LiveEntry& entry);

  Chooser& chooser_;
  const Ledger& ledger_;
  SiteSums sums_;
};

}  // namespace quarl::report
