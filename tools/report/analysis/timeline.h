// SPDX-License-Identifier: Apache-2.0
// What was held over time, as a bounded number of points.
#pragma once

#include <optional>
#include <vector>

#include "report/analysis/ledger.h"
#include "report/reading/resident_events.h"
#include "report/reading/snapshot.h"

namespace quarl::report {

struct TimePoint {
  uint64_t at = 0;     // seconds since the epoch, or records since the start; see TimeAxis
  uint64_t bytes = 0;  // heap and anonymous mappings
  uint64_t file_bytes = 0;
  std::optional<uint64_t> entries;  // blocks and mappings, nothing when a snapshot has no details
  uint64_t peak = 0;                // of bytes, since the point before
  uint64_t most_entries = 0;        // since the point before
  uint32_t snapshot = 0;            // its number, 0 from a record log
  // Bytes of the process that lay in memory when a snapshot had been written, the last one since the point before;
  // nothing when no event tells.
  std::optional<uint64_t> resident;
};

enum class TimeAxis { kSeconds, kRecords };

// "seconds" or "records".
const char* name_of(TimeAxis axis);

struct Timeline {
  TimeAxis axis = TimeAxis::kSeconds;
  std::vector<TimePoint> points;
};

// Of one snapshot: bytes from its statistics, or from its records where the statistics were off; blocks from its
// records. `held` is what these add up to, null when there are none.
TimePoint snapshot_point(const Snapshot& snapshot, const ProfInfo& statistics, const Held* held);

// A counted peak is that of the whole run: turns those of a chain's points, in their order, into the peaks since the
// point before. Where a later one is no higher the most that is known are the two points themselves.
void limit_peaks(std::vector<TimePoint>& points);

// Puts events to the points of a record log in whose time they fall; there is nothing to go by without times.
void add_resident(Timeline& timeline, const std::vector<ResidentEvent>& events);

// At most `most` points; neighbours are joined to the later of them, with the peaks of all.
std::vector<TimePoint> thinned(const std::vector<TimePoint>& points, size_t most);

// Samples what is held while records pass. When the points become too many, each two neighbours are joined.
class TimelineSampler {
 public:
  explicit TimelineSampler(TimeAxis axis) { timeline_.axis = axis; }
  void sample(const OpRecord& record, const Held& held);
  Timeline finish();

 private:
  void close_point();
  void halve();

  Timeline timeline_;
  TimePoint current_;
  uint64_t records_ = 0;
  uint64_t step_ = 1;  // seconds or records from one point to the next
};

// The timeline of a record log: by time, or by record where no times were recorded.
class RecordTimeline {
 public:
  // `held` once the record was taken.
  void sample(const OpRecord& record, const Held& held);
  Timeline finish();

 private:
  TimelineSampler by_time_{TimeAxis::kSeconds};
  TimelineSampler by_record_{TimeAxis::kRecords};
};

}  // namespace quarl::report
