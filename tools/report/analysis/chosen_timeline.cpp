// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/chosen_timeline.h"

namespace quarl::report {

void hold(Held& held, const LiveEntry& entry) {
  (entry.from_file ? held.file_bytes : held.bytes) += entry.size;
  ++held.entries;
}

void ChosenTimeline::came(const LiveEntry& entry, const OpRecord&) {
  if (chooser_.takes(entry, ledger_.traces())) hold(held_, entry);
}

// However it went: a mapping that carries a block is counted as the block from then on.
void ChosenTimeline::went(const LiveEntry& entry, Going, const OpRecord&) {
  if (!chooser_.takes(entry, ledger_.traces())) return;
  (entry.from_file ? held_.file_bytes : held_.bytes) -= entry.size;
  --held_.entries;
}

void ChosenTimeline::passed(const OpRecord& record, const Ledger&) {
  timeline_.sample(record, held_);
}

}  // namespace quarl::report
