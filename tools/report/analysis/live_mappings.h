// SPDX-License-Identifier: Apache-2.0
// The mappings that are held. Grows with the number held at once.
#pragma once

#include <list>
#include <map>
#include <optional>
#include <unordered_map>

#include "report/analysis/live_entry.h"

namespace quarl::report {

struct LiveMapping {
  LiveEntry entry;
  bool carries_block = false;  // made by the allocator for one large block, which is counted itself
};

class LiveMappings {
 public:
  // Returns the mapping as it is kept; the reference holds until it is removed.
  LiveMapping& insert(const LiveEntry& entry);
  // Takes out what the library takes as released by unmapping [address, address + length): the oldest mapping of just
  // these bounds, or the oldest anonymous one that ends where they end. Nothing for any other part of a mapping.
  std::optional<LiveMapping> remove(uint32_t address, uint32_t length);
  // The anonymous mapping that holds `address`, or null.
  LiveMapping* containing(uint32_t address);
  bool empty() const { return mappings_.empty(); }

  template <typename Visit>
  void for_each(Visit visit) const {
    for (const LiveMapping& mapping : mappings_) visit(mapping);
  }

 private:
  using Position = std::list<LiveMapping>::iterator;
  void erase(Position position);

  std::list<LiveMapping> mappings_;  // oldest first
  std::multimap<uint32_t, Position> by_start_;
  std::multimap<uint32_t, Position> by_end_;  // of equal ends the oldest first
};

}  // namespace quarl::report
