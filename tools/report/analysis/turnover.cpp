// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/turnover.h"

namespace quarl::report {

void Turnover::add(const LiveEntry& entry) {
  if (chooser_.takes(entry, ledger_.traces())) sums_.add(entry);
}

// Whether a mapping carries a block is known at its end at the latest.
void Turnover::came(const LiveEntry& entry, const OpRecord&) {
  if (!is_mapping(entry) && !ledger_.restored()) add(entry);
}

void Turnover::went(const LiveEntry& entry, Going how, const OpRecord&) {
  if (is_mapping(entry) && how != Going::kCarried) add(entry);
}

void Turnover::fill(SiteTable& table) {
  ledger_.for_each_held([&](const LiveEntry& entry) {
    if (is_mapping(entry)) add(entry);
  });
  sums_.fill(table);
}

}  // namespace quarl::report
