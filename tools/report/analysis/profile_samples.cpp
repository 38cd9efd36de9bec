// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/profile_samples.h"

namespace quarl::report {

void AllocationSamples::add(const LiveEntry& entry) {
  if (chooser_.takes(entry, ledger_.traces())) sums_[uint64_t{entry.trace} << 32 | entry.tid] += {entry.size, 1};
}

void AllocationSamples::came(const LiveEntry& entry, const OpRecord&) {
  if (!is_mapping(entry) && !ledger_.restored()) add(entry);
}

// Whether a mapping carries a block is known at its end at the latest.
void AllocationSamples::went(const LiveEntry& entry, Going how, const OpRecord&) {
  if (is_mapping(entry) && how != Going::kCarried) add(entry);
}

ProfileSamples AllocationSamples::take() {
  ledger_.for_each_held([&](const LiveEntry& entry) {
    if (is_mapping(entry)) add(entry);
  });
  ProfileSamples samples;
  for (const auto& [key, usage] : sums_) {
    samples[{static_cast<TraceId>(key >> 32), static_cast<uint32_t>(key)}].allocated = usage;
  }
  return samples;
}

}  // namespace quarl::report
