// SPDX-License-Identifier: Apache-2.0
// What a page shows of the blocks of its sites, finely enough that a reader can filter it by thread, size, age and
// kind: blocks of one site that are alike in all of these are one cell.
#pragma once

#include <map>
#include <unordered_map>
#include <vector>

#include "report/analysis/histogram.h"
#include "report/formats/table.h"

namespace quarl::report {

// A stretch of time cut into at most kMost moments of the same length, which begin at round times.
class PageMoments {
 public:
  static constexpr size_t kMost = 16;
  // From the earliest to the latest time, seconds since the epoch; both 0 when no times were recorded.
  PageMoments(uint32_t earliest, uint32_t latest);
  // Counts from 0. What is earlier or later than all of them belongs to the first or the last.
  uint32_t index_of(uint32_t time) const;
  // When each begins; none without times.
  Json json() const;

 private:
  uint32_t first_ = 0;
  uint32_t step_ = 1;
  uint32_t count_ = 0;
};

class PageCells {
 public:
  explicit PageCells(const PageMoments& moments) : moments_(&moments) {}
  void add(const LiveEntry& entry);
  size_t size() const { return cells_.size(); }
  // What each trace has, most bytes first.
  std::vector<std::pair<TraceId, Usage>> traces() const;
  // The cells of sites instead of those of traces: `sites` has the site of each trace; what has none is left out.
  PageCells by_site(const std::unordered_map<TraceId, size_t>& sites) const;
  // Columns, small numbers where there can be: `younger` is to be added to `oldest`, which is 0 without a time, for the
  // newest; `larger` to `smallest`; `bytes` is what count * smallest leaves.
  Json json() const;

 private:
  enum Kind : uint32_t { kHeap, kMapping, kFileMapping };
  struct Key {
    size_t place;  // the trace, or the site
    uint32_t thread;
    Kind kind;
    uint32_t level;
    uint32_t moment;
    auto operator<=>(const Key&) const = default;
  };
  struct Cell {
    Usage usage;
    uint32_t smallest = UINT32_MAX, largest = 0;
    uint32_t oldest = UINT32_MAX, newest = 0;
    void add(const Cell& other);
  };

  const PageMoments* moments_;
  std::map<Key, Cell> cells_;
};

}  // namespace quarl::report
