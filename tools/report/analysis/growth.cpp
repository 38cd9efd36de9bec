// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/growth.h"

#include <algorithm>
#include <numeric>

namespace quarl::report {
namespace {

constexpr size_t kFewestHeights = 2;  // that make a trend

// Snapshots in which the site held more than in any before.
size_t heights_of(const std::vector<Usage>& points) {
  uint64_t highest = points.front().bytes;
  size_t heights = 0;
  for (const Usage& usage : points) {
    heights += usage.bytes > highest;
    highest = std::max(highest, usage.bytes);
  }
  return heights;
}

double mean(const std::vector<double>& values) {
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

double slope_of(const std::vector<double>& axis, const std::vector<Usage>& points) {
  std::vector<double> bytes;
  bytes.reserve(points.size());
  for (const Usage& usage : points) bytes.push_back(static_cast<double>(usage.bytes));
  const double middle = mean(axis), level = mean(bytes);
  double rise = 0, run = 0;
  for (size_t index = 0; index < axis.size(); ++index) {
    rise += (axis[index] - middle) * (bytes[index] - level);
    run += (axis[index] - middle) * (axis[index] - middle);
  }
  return rise / run;
}

}  // namespace

void Growth::add(uint32_t time, const SiteTable& sites) {
  for (const Site& site : sites.sites()) {
    Series& series = series_[site.key];
    series.site = site;
    series.points.resize(times_.size());  // it held nothing since
    series.points.push_back(site.usage);
  }
  times_.push_back(time);
  left_out_ = sites.left_out();
}

bool Growth::by_time() const {
  auto [first, last] = std::minmax_element(times_.begin(), times_.end());
  return first != times_.end() && *first != 0 && *first != *last;
}

std::vector<double> Growth::axis() const {
  std::vector<double> axis(times_.begin(), times_.end());
  if (!by_time()) std::iota(axis.begin(), axis.end(), 0.0);
  return axis;
}

std::vector<GrownSite> Growth::sites() const {
  const std::vector<double> along = axis();
  std::vector<GrownSite> grown;
  for (const auto& [key, series] : series_) {
    GrownSite site{series.site, series.points};
    site.points.resize(times_.size());
    const size_t heights = heights_of(site.points);
    if (heights < kFewestHeights) continue;
    site.steadiness = static_cast<double>(heights) / static_cast<double>(site.points.size() - 1);
    site.slope = slope_of(along, site.points);
    if (site.slope > 0) grown.push_back(std::move(site));
  }
  std::sort(grown.begin(), grown.end(), [](const GrownSite& a, const GrownSite& b) {
    return a.rank() != b.rank() ? a.rank() > b.rank() : a.site.key < b.site.key;
  });
  return grown;
}

}  // namespace quarl::report
