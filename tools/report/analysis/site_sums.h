// SPDX-License-Identifier: Apache-2.0
// Blocks summed up while they pass by, as far as a grouping tells them apart: memory grows with the distinct traces,
// threads or sizes, not with the blocks.
#pragma once

#include <functional>
#include <unordered_map>

#include "report/analysis/site_table.h"

namespace quarl::report {

class SiteSums {
 public:
  using Listener = std::function<void(const LiveEntry&)>;
  explicit SiteSums(Grouping grouping) : grouping_(grouping) {}
  // Who sums up otherwise as well; told of each block.
  void tell(Listener listener) { listener_ = std::move(listener); }
  void add(const LiveEntry& entry) {
    sums_[key_of(entry)].add(entry);
    if (listener_) listener_(entry);
  }
  // Puts the sums into a table of the same grouping.
  void fill(SiteTable& table) const;

 private:
  uint32_t key_of(const LiveEntry& entry) const;

  Grouping grouping_;
  Listener listener_;
  std::unordered_map<uint32_t, SiteSum> sums_;  // by trace, thread or size
};

}  // namespace quarl::report
