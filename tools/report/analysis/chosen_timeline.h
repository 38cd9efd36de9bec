// SPDX-License-Identifier: Apache-2.0
// The timeline of the part of a record log that was chosen: the ledger's own sums are those of everything.
#pragma once

#include "report/analysis/selection.h"
#include "report/analysis/timeline.h"

namespace quarl::report {

class ChosenTimeline : public HeldWatcher {
 public:
  // Both must outlive this; `ledger` is the one that tells it. Nothing may be chosen by age, which changes while the
  // records pass.
  ChosenTimeline(Chooser& chooser, const Ledger& ledger) : chooser_(chooser), ledger_(ledger) {}
  void came(const LiveEntry& entry, const OpRecord& by) override;
  void went(const LiveEntry& entry, Going how, const OpRecord& by) override;
  void passed(const OpRecord& record, const Ledger& ledger) override;

  // To be called after the last record.
  Timeline finish() { return timeline_.finish(); }

 private:
  Chooser& chooser_;
  const Ledger& ledger_;
  Held held_;
  RecordTimeline timeline_;
};

// Adds an entry to what is held; the peaks stay as they are.
void hold(Held& held, const LiveEntry& entry);

}  // namespace quarl::report
