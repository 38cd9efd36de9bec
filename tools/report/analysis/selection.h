// SPDX-License-Identifier: Apache-2.0
// Which blocks and mappings an answer is about: the filters that every verb takes. An absent value leaves all in.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/analysis/trace_table.h"
#include "report/symbols/symbolizer.h"

namespace quarl::report {

struct Selection {
  std::optional<uint32_t> thread;              // kernel task id of who asked
  std::optional<uint32_t> min_size, max_size;  // bytes asked for, both included
  // Seconds from the allocation to the moment of the answer, both included. What has no time has no age.
  std::optional<uint32_t> min_age, max_age;
  std::string module;  // of the innermost frame that is no allocator's: a pattern for its path, see pattern_matches()

  bool asks_for_age() const { return min_age || max_age; }
  bool empty() const { return !thread && !min_size && !max_size && !min_age && !max_age && module.empty(); }
};

// A selection put to one log, at one moment.
class Chooser {
 public:
  // The others must outlive the chooser. `now`: the moment of the answer, seconds since the epoch; 0 when unknown.
  Chooser(const Selection& selection, Symbolizer& symbolizer, uint32_t now)
      : selection_(selection), symbolizer_(symbolizer), now_(now) {}

  // True when there is nothing to choose from: all of it is meant.
  bool takes_all() const { return selection_.empty(); }
  // `entry` has size, tid and time: a LiveEntry. Its trace is one of `traces`, the same at each call.
  bool takes(const auto& entry, const TraceTable& traces) {
    return takes_all() || (takes_plain(entry.tid, entry.size, entry.time) && takes_trace(entry.trace, traces));
  }
  // The same for what has its trace with it.
  bool takes(uint32_t tid, uint32_t size, uint32_t time, Trace trace) {
    return takes_plain(tid, size, time) && (selection_.module.empty() || takes_module(trace));
  }

 private:
  bool takes_plain(uint32_t tid, uint32_t size, uint32_t time) const;
  bool takes_trace(TraceId id, const TraceTable& traces);
  bool takes_module(Trace trace);

  const Selection& selection_;
  Symbolizer& symbolizer_;
  uint32_t now_;
  std::vector<std::optional<bool>> known_;  // by trace id
};

}  // namespace quarl::report
