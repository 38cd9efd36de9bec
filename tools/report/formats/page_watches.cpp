// SPDX-License-Identifier: Apache-2.0
#include "report/formats/page_watches.h"

namespace quarl::report {

PageWatches::PageWatches(Subject& subject)
    : subject_(subject), moments_(moments_of(subject)), hot_cells_(moments_), temporary_cells_(moments_) {
  if (subject.log().kind() != LogKind::kRecords) return;
  const Ledger& filling = subject.pass().filling();
  subject.pass().watch(peak_.emplace());
  subject.pass().watch(turnover_.emplace(Grouping::kTrace, subject.chooser(), filling));
  subject.pass().watch(short_lived_.emplace(Grouping::kTrace, subject.chooser(), filling, 0));
  subject.pass().watch(growth_watch_.emplace(growth_, subject, Grouping::kTrace));
  turnover_->tell([this](const LiveEntry& entry) { hot_cells_.add(entry); });
  short_lived_->tell([this](const LiveEntry& entry) { temporary_cells_.add(entry); });
}

// Ahead of the pass that is yet to come only a few records are looked at: times are recorded of all or of none.
PageMoments PageWatches::moments_of(Subject& subject) {
  uint32_t earliest = 0;
  RecordStream stream(subject.log(), subject.snapshot());
  for (const OpRecord& record : stream.next()) {
    if (record.time != 0 && (earliest == 0 || record.time < earliest)) earliest = record.time;
  }
  return {earliest, RecordPass(subject.log(), subject.snapshot(), {}).now()};
}

const PeakWatch& PageWatches::peak() {
  subject_.ledger();
  return peak_.value();
}

PageCells PageWatches::peak_cells() {
  PageCells cells(moments_);
  const Ledger& ledger = subject_.ledger();
  Chooser chooser = subject_.chooser_at(peak_->record().time);
  peak_->for_each(ledger, [&](const LiveEntry& entry) {
    if (chooser.takes(entry, ledger.traces())) cells.add(entry);
  });
  return cells;
}

// What is summed up only at the end is told then as well.
PageCells PageWatches::hot_cells() {
  subject_.table(Grouping::kTrace, Order::kBytes, [&](SiteTable& table) { turnover_->fill(table); });
  return hot_cells_;
}

PageCells PageWatches::temporary_cells() {
  subject_.table(Grouping::kTrace, Order::kBytes, [&](SiteTable& table) { short_lived_->fill(table); });
  return temporary_cells_;
}

Usage PageWatches::released() {
  subject_.ledger();
  return short_lived_->released();
}

}  // namespace quarl::report
