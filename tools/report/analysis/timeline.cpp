// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/timeline.h"

#include <algorithm>

#include "report/analysis/statistics.h"

namespace quarl::report {
namespace {

constexpr size_t kMaxPoints = 2048;

TimePoint join(const TimePoint& a, TimePoint b) {
  b.peak = std::max(a.peak, b.peak);
  b.most_entries = std::max(a.most_entries, b.most_entries);
  if (!b.resident) b.resident = a.resident;
  return b;
}

}  // namespace

const char* name_of(TimeAxis axis) {
  return axis == TimeAxis::kSeconds ? "seconds" : "records";
}

TimePoint snapshot_point(const Snapshot& snapshot, const ProfInfo& statistics, const Held* held) {
  // Less than nothing is no height.
  auto height = [](int64_t bytes) { return static_cast<uint64_t>(std::max<int64_t>(bytes, 0)); };
  TimePoint point;
  point.at = snapshot.header.time;
  point.bytes = height(held_bytes(statistics));
  point.file_bytes = height(held_file_bytes(statistics));
  point.peak = known_peak(statistics.unfree_peak).value_or(point.bytes);
  point.snapshot = snapshot.header.snapshot_number;
  if (held == nullptr) return point;
  point.entries = point.most_entries = held->entries;
  if (!has_counts(statistics)) point.bytes = point.peak = held->bytes, point.file_bytes = held->file_bytes;
  return point;
}

void limit_peaks(std::vector<TimePoint>& points) {
  uint64_t highest = 0, before = 0;
  for (TimePoint& point : points) {
    uint64_t counted = point.peak;
    if (counted <= highest) point.peak = std::max(before, point.bytes);
    highest = std::max(highest, counted);
    before = point.bytes;
  }
}

void add_resident(Timeline& timeline, const std::vector<ResidentEvent>& events) {
  if (timeline.axis != TimeAxis::kSeconds) return;
  std::vector<TimePoint>& points = timeline.points;
  for (const ResidentEvent& event : events) {
    auto behind =
        std::find_if(points.begin(), points.end(), [&](const TimePoint& point) { return point.at > event.time; });
    if (behind != points.begin() && event.resident) std::prev(behind)->resident = event.resident;
  }
}

std::vector<TimePoint> thinned(const std::vector<TimePoint>& points, size_t most) {
  size_t step = (points.size() + most - 1) / most;
  std::vector<TimePoint> kept;
  for (size_t index = 0; index < points.size(); ++index) {
    if (index % step == 0) {
      kept.push_back(points[index]);
    } else {
      kept.back() = join(kept.back(), points[index]);
    }
  }
  return kept;
}

void TimelineSampler::sample(const OpRecord& record, const Held& held) {
  uint64_t at = timeline_.axis == TimeAxis::kRecords ? records_ : record.time;
  ++records_;
  if (at == 0 && timeline_.axis == TimeAxis::kSeconds) return;
  if (timeline_.points.empty() && current_.at == 0) current_.at = at;
  // The clock of a record never runs far backwards: a block's time may be a little older than its neighbours'.
  if (at >= current_.at + step_) {
    close_point();
    current_.at = at;
  }
  current_.bytes = held.bytes;
  current_.file_bytes = held.file_bytes;
  current_.entries = held.entries;
  current_.peak = std::max(current_.peak, current_.bytes);
  current_.most_entries = std::max(current_.most_entries, held.entries);
}

void TimelineSampler::close_point() {
  timeline_.points.push_back(current_);
  current_.peak = 0;
  current_.most_entries = 0;
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

void RecordTimeline::sample(const OpRecord& record, const Held& held) {
  by_time_.sample(record, held);
  by_record_.sample(record, held);
}

Timeline RecordTimeline::finish() {
  Timeline timeline = by_time_.finish();
  return timeline.points.size() > 1 ? timeline : by_record_.finish();
}

}  // namespace quarl::report
