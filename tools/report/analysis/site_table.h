// SPDX-License-Identifier: Apache-2.0
// Blocks and mappings, grouped.
#pragma once

#include <unordered_map>
#include <vector>

#include "report/analysis/site.h"
#include "report/analysis/suppressions.h"
#include "report/symbols/symbolizer.h"

namespace quarl::report {

enum class Grouping { kTrace, kFunction, kFile, kModule, kThread, kSize };
enum class Order { kBytes, kCount };  // which sites come first

// True for the groupings that depend on the trace alone.
bool groups_by_trace(Grouping grouping);

// Blocks and mappings that are held but not told as unfreed.
struct LeftOut {
  Usage by_user;     // --suppress
  Usage by_default;  // kept by the C and C++ libraries by design
  void add(Hiding hiding, const Usage& usage) { (hiding == Hiding::kByUser ? by_user : by_default) += usage; }
};

class SiteTable {
 public:
  // The others must outlive the table.
  SiteTable(const TraceTable& traces, Symbolizer& symbolizer, Grouping grouping)
      : traces_(traces), symbolizer_(symbolizer), grouping_(grouping) {}

  void add(const LiveEntry& entry);
  // What was summed up already: all of it of that trace, or, with groups_by_trace() false, of that thread or size.
  void add(TraceId trace, uint32_t tid, uint32_t size, const SiteSum& sum);
  // What belongs to no site, because it is not to be told.
  void leave_out(const LiveEntry& entry, Hiding hiding) { left_out_.add(hiding, {entry.size, 1}); }
  // To be called after the last of these.
  void finish(Order order = Order::kBytes);

  // Most bytes first, or what else was asked of finish().
  const std::vector<Site>& sites() const { return sites_; }
  const Usage& total() const { return total_; }
  const LeftOut& left_out() const { return left_out_; }
  Grouping grouping() const { return grouping_; }

 private:
  struct TracePlace {
    bool known = false;
    Frames frames;
  };
  TracePlace& place_of(TraceId trace);
  template <typename Part>
  void add_part(TraceId trace, uint32_t tid, uint32_t size, const Usage& usage, const Part& part);
  std::string key_of(uint32_t tid, uint32_t size, const Frames& frames) const;
  Site& site_of(TraceId trace, uint32_t tid, uint32_t size, const Frames& frames);

  const TraceTable& traces_;
  Symbolizer& symbolizer_;
  Grouping grouping_;
  std::vector<TracePlace> places_;  // by trace id
  std::vector<Site> sites_;
  std::unordered_map<std::string, size_t> by_key_;
  std::unordered_map<TraceId, size_t> by_trace_;  // for the groupings that depend on the trace alone
  Usage total_;
  LeftOut left_out_;
};

}  // namespace quarl::report
