// SPDX-License-Identifier: Apache-2.0
#include "report/formats/page_cells.h"

#include <algorithm>

namespace quarl::report {
namespace {

constexpr uint32_t kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
constexpr uint32_t kSteps[] = {1,        2,           5,           10,           15,           30,
                               kMinute,  2 * kMinute, 5 * kMinute, 10 * kMinute, 15 * kMinute, 30 * kMinute,
                               kHour,    2 * kHour,   3 * kHour,   6 * kHour,    12 * kHour,   kDay,
                               2 * kDay, 7 * kDay};

}  // namespace

PageMoments::PageMoments(uint32_t earliest, uint32_t latest) {
  if (earliest == 0 || latest < earliest) return;
  auto reach = [&](uint32_t step) { return latest / step - earliest / step + 1; };
  auto fine = std::find_if(std::begin(kSteps), std::end(kSteps), [&](uint32_t step) { return reach(step) <= kMost; });
  step_ = fine != std::end(kSteps) ? *fine : (latest - earliest) / (kMost - 1) + 1;
  first_ = earliest - earliest % step_;
  count_ = reach(step_);
}

uint32_t PageMoments::index_of(uint32_t time) const {
  if (count_ == 0 || time < first_) return 0;
  return std::min((time - first_) / step_, count_ - 1);
}

Json PageMoments::json() const {
  Json begins = Json::array();
  for (uint32_t index = 0; index < count_; ++index) begins.push_back(first_ + index * step_);
  return begins;
}

void PageCells::Cell::add(const Cell& other) {
  usage += other.usage;
  smallest = std::min(smallest, other.smallest);
  largest = std::max(largest, other.largest);
  oldest = std::min(oldest, other.oldest);
  newest = std::max(newest, other.newest);
}

void PageCells::add(const LiveEntry& entry) {
  Kind kind = entry.from_file ? kFileMapping : is_mapping(entry) ? kMapping : kHeap;
  uint32_t oldest = entry.time == 0 ? UINT32_MAX : entry.time;
  cells_[{entry.trace, entry.tid, kind, static_cast<uint32_t>(level_of(entry.size)), moments_->index_of(entry.time)}]
      .add({{entry.size, 1}, entry.size, entry.size, oldest, entry.time});
}

std::vector<std::pair<TraceId, Usage>> PageCells::traces() const {
  std::vector<std::pair<TraceId, Usage>> sums;
  for (const auto& [key, cell] : cells_) {
    if (sums.empty() || sums.back().first != key.place) sums.push_back({static_cast<TraceId>(key.place), {}});
    sums.back().second += cell.usage;
  }
  std::stable_sort(sums.begin(), sums.end(),
                   [](const auto& a, const auto& b) { return a.second.bytes > b.second.bytes; });
  return sums;
}

PageCells PageCells::by_site(const std::unordered_map<TraceId, size_t>& sites) const {
  PageCells moved(*moments_);
  for (const auto& [key, cell] : cells_) {
    auto site = sites.find(static_cast<TraceId>(key.place));
    if (site == sites.end()) continue;
    Key place = key;
    place.place = site->second;
    moved.cells_[place].add(cell);
  }
  return moved;
}

Json PageCells::json() const {
  Json site, thread, kind, smallest, larger, oldest, younger, bytes, count;
  for (const auto& [key, cell] : cells_) {
    bool timed = cell.newest != 0;
    site.push_back(key.place);
    thread.push_back(key.thread);
    kind.push_back(static_cast<uint32_t>(key.kind));
    smallest.push_back(cell.smallest);
    larger.push_back(cell.largest - cell.smallest);
    oldest.push_back(timed ? cell.oldest : 0);
    younger.push_back(timed ? cell.newest - cell.oldest : 0);
    bytes.push_back(cell.usage.bytes - cell.usage.count * cell.smallest);
    count.push_back(cell.usage.count);
  }
  Json columns = {{"site", site},         {"thread", thread}, {"kind", kind},
                  {"smallest", smallest}, {"larger", larger}, {"oldest", oldest},
                  {"younger", younger},   {"bytes", bytes},   {"count", count}};
  for (auto& column : columns) {
    if (column.is_null()) column = Json::array();
  }
  return columns;
}

}  // namespace quarl::report
