// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/peak_watch.h"

namespace quarl::report {

void PeakWatch::went(const LiveEntry& entry, Going how, const OpRecord&) {
  if (bytes_ != 0 && entry.born <= at_ && how != Going::kCarried) gone_.push_back(entry);
}

void PeakWatch::passed(const OpRecord& record, const Ledger& ledger) {
  if (ledger.held().bytes <= bytes_) return;
  bytes_ = ledger.held().bytes;
  at_ = ledger.taken();
  record_ = record;
  gone_.clear();
}

}  // namespace quarl::report
