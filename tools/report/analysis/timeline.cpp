#include "report/analysis/timeline.h"

#include <algorithm>

#include "report/analysis/ledger_reader.h"
#include "report/analysis/statistics.h"

namespace quarl::report {
namespace {

constexpr size_t kMaxPoints = 2048;

TimePoint join(const TimePoint& a, TimePoint b) {
  b.peak = std::max(a.peak, b.peak);
  return b;
}

TimePoint snapshot_point(const Log& log, const Snapshot& snapshot) {
  ProfInfo statistics = log.statistics(snapshot);
  TimePoint point = {snapshot.header.time, statistics.unfree_size, statistics.unfree_file_size,
                     std::nullopt,         statistics.unfree_peak, snapshot.header.snapshot_number};
  if (snapshot.records == 0) return point;
  LedgerResult result = read_ledger(log, snapshot);
  const Held& held = result.ledger->held();
  point.entries = held.entries;
  if (!has_counts(statistics)) point.bytes = point.peak = held.bytes, point.file_bytes = held.file_bytes;
  return point;
}

}  // namespace

Timeline snapshot_timeline(const Log& log) {
  Timeline timeline;
  for (const Snapshot& snapshot : log.snapshots()) timeline.points.push_back(snapshot_point(log, snapshot));
  return timeline;
}

void TimelineSampler::sample(const OpRecord& record, const Ledger& ledger) {
  uint64_t at = timeline_.axis == TimeAxis::kRecords ? records_ : record.time;
  ++records_;
  if (at == 0 && timeline_.axis == TimeAxis::kSeconds) return;
  if (timeline_.points.empty() && current_.at == 0) current_.at = at;
  // The clock of a record never runs far backwards: a block's time may be a little older than its neighbours'.
  if (at >= current_.at + step_) {
    close_point();
    current_.at = at;
  }
  current_.bytes = ledger.held().bytes;
  current_.file_bytes = ledger.held().file_bytes;
  current_.entries = ledger.held().entries;
  current_.peak = std::max(current_.peak, current_.bytes);
}

void TimelineSampler::close_point() {
  timeline_.points.push_back(current_);
  current_.peak = 0;
  if (timeline_.points.size() >= kMaxPoints) halve();
}

void TimelineSampler::halve() {
  std::vector<TimePoint>& points = timeline_.points;
  for (size_t index = 0; index + 1 < points.size(); index += 2)
    points[index / 2] = join(points[index], points[index + 1]);
  points.resize(points.size() / 2);
  step_ *= 2;
}

Timeline TimelineSampler::finish() {
  if (current_.entries) close_point();
  return std::move(timeline_);
}

Timeline record_timeline(const Log& log, const Snapshot& snapshot) {
  TimelineSampler by_time(TimeAxis::kSeconds);
  TimelineSampler by_record(TimeAxis::kRecords);
  read_ledger(log, snapshot, [&](const OpRecord& record, const Ledger& ledger) {
    by_time.sample(record, ledger);
    by_record.sample(record, ledger);
  });
  Timeline timeline = by_time.finish();
  return timeline.points.size() > 1 ? timeline : by_record.finish();
}

}  // namespace quarl::report
