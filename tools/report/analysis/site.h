// SPDX-License-Identifier: Apache-2.0
// Blocks and mappings that belong together, most often because one place in the program asked for them: what is held of
// them, or all that there ever were.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "report/analysis/live_entry.h"
#include "report/symbols/frame.h"

namespace quarl::report {

struct Usage {
  uint64_t bytes = 0;
  uint64_t count = 0;  // blocks and mappings
  Usage& operator+=(const Usage& other) {
    bytes += other.bytes;
    count += other.count;
    return *this;
  }
  Usage& operator-=(const Usage& other) {
    bytes -= other.bytes;
    count -= other.count;
    return *this;
  }
};

// Text for a block without a call trace.
inline constexpr char kNoTrace[] = "(no call trace recorded)";

// The place in the program that a trace begins at, for the reader.
std::string site_name(const Frames& frames);

struct SiteSum {
  Usage usage;
  uint32_t smallest = UINT32_MAX;  // bytes of the smallest and the largest
  uint32_t largest = 0;
  uint32_t oldest = 0;  // seconds since the epoch, 0 when no time was recorded
  uint32_t newest = 0;
  std::set<uint32_t> tids;  // of the threads that asked, without 0
  bool heap = false;        // what it holds: any of the three
  bool mappings = false;
  bool file_mappings = false;

  void add(const LiveEntry& entry);
  void add(const SiteSum& sum);
  // "heap", "mapping", "file mapping" or several with "+" between.
  std::string kind() const;
};

struct Site : SiteSum {
  std::string key;   // equal for the same place in two logs
  std::string name;  // for the reader
  Frames frames;     // of the call trace, innermost first; empty when sites are grouped by something else
};

}  // namespace quarl::report
