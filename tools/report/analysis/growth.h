// SPDX-License-Identifier: Apache-2.0
// Sites that rise from one snapshot to the next, over many of them.
//
// The steadiness of a site is the share of the snapshots behind the first in which it held more than in any before: 1
// never stops rising, a buffer that comes and goes is near 0, and so is one that was made once. The slope is that of
// the straight line that fits its bytes best (least squares), a second or, where the snapshots have no times, a
// snapshot. Sites are ranked by steadiness times slope. One that reached a new height less than twice shows no trend,
// nor does one whose slope is not positive: these are left out.
#pragma once

#include <unordered_map>
#include <vector>

#include "report/analysis/site_table.h"

namespace quarl::report {

struct GrownSite {
  Site site;                  // as it was last seen
  std::vector<Usage> points;  // of each snapshot
  double steadiness = 0;      // [0, 1]
  double slope = 0;           // bytes a second, or a snapshot
  double rank() const { return steadiness * slope; }
};

class Growth {
 public:
  // Snapshots in their order; `time` in seconds since the epoch, 0 when unknown.
  void add(uint32_t time, const SiteTable& sites);

  // Those that rise, the highest rank first.
  std::vector<GrownSite> sites() const;
  size_t snapshots() const { return times_.size(); }
  // In the last of them.
  const LeftOut& left_out() const { return left_out_; }
  const std::vector<uint32_t>& times() const { return times_; }
  // True when the slopes are those of seconds: every snapshot has a time, and they are not all of one moment.
  bool by_time() const;

 private:
  struct Series {
    Site site;
    std::vector<Usage> points;  // from the first snapshot on; those behind the last that held any are missing
  };
  std::vector<double> axis() const;

  std::vector<uint32_t> times_;
  LeftOut left_out_;
  std::unordered_map<std::string, Series> series_;  // by Site::key
};

}  // namespace quarl::report
