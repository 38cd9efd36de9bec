// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/selection.h"

#include "report/analysis/suppressions.h"

namespace quarl::report {
namespace {

bool in_range(uint32_t value, const std::optional<uint32_t>& from, const std::optional<uint32_t>& to) {
  return (!from || value >= *from) && (!to || value <= *to);
}

}  // namespace

bool Chooser::takes_plain(uint32_t tid, uint32_t size, uint32_t time) const {
  if (selection_.thread && tid != *selection_.thread) return false;
  if (!in_range(size, selection_.min_size, selection_.max_size)) return false;
  if (!selection_.asks_for_age()) return true;
  if (time == 0 || now_ == 0) return false;
  return in_range(now_ - std::min(now_, time), selection_.min_age, selection_.max_age);
}

bool Chooser::takes_trace(TraceId id, const TraceTable& traces) {
  if (selection_.module.empty()) return true;
  if (id >= known_.size()) known_.resize(traces.size());
  if (!known_[id]) known_[id] = takes_module(traces.addresses(id));
  return *known_[id];
}

bool Chooser::takes_module(Trace trace) {
  Frames frames = symbolizer_.trace(trace);
  return !frames.empty() && pattern_matches(selection_.module, frames.front().module);
}

}  // namespace quarl::report
