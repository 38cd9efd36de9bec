// Everything that is held, grouped.
#pragma once

#include <unordered_map>
#include <vector>

#include "report/analysis/ledger.h"
#include "report/analysis/site.h"
#include "report/analysis/suppressions.h"
#include "report/symbols/symbolizer.h"

namespace quarl::report {

enum class Grouping { kTrace, kFunction, kFile, kModule, kThread, kSize };

class SiteTable {
 public:
  SiteTable(const Ledger& ledger, Symbolizer& symbolizer, Grouping grouping, const Suppressions& suppressions);

  // Most bytes first.
  const std::vector<Site>& sites() const { return sites_; }
  const Usage& total() const { return total_; }
  const Usage& suppressed() const { return suppressed_; }

 private:
  struct TracePlace {
    bool known = false;
    bool hidden = false;
    Frames frames;
  };
  TracePlace& place_of(TraceId trace);
  void add(const LiveEntry& entry);
  std::string key_of(const LiveEntry& entry, const Frames& frames) const;
  Site& site_of(const LiveEntry& entry, const Frames& frames);
  void sort();

  const Ledger& ledger_;
  Symbolizer& symbolizer_;
  Grouping grouping_;
  const Suppressions& suppressions_;
  std::vector<TracePlace> places_;  // by trace id
  std::vector<Site> sites_;
  std::unordered_map<std::string, size_t> by_key_;
  std::unordered_map<TraceId, size_t> by_trace_;  // for the groupings that depend on the trace alone
  Usage total_;
  Usage suppressed_;
};

}  // namespace quarl::report
