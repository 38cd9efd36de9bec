// SPDX-License-Identifier: Apache-2.0
// The overruns that the library reported, each with its neighbours in memory.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "report/analysis/live_blocks.h"

namespace quarl::report {

struct Neighbour {
  LiveEntry block;
  uint32_t distance;  // bytes between the two blocks' user bytes, 0 when they touch or overlap
};

struct Fault {
  OpRecord record;
  std::optional<Neighbour> below;  // the nearest held block at a lower address
  std::optional<Neighbour> above;
};

class FaultList {
 public:
  // Before the first fault: only those that `takes` takes are listed and counted from then on.
  using Takes = std::function<bool(const OpRecord&)>;
  void choose(Takes takes) { takes_ = std::move(takes); }
  // Takes a record of kind kKindSlopHead or kKindSlopTail. Repeated reports of one fault of one block are taken once.
  // Only the first thousand are kept, all are counted.
  void add(const OpRecord& record);
  // Fills in the neighbours of the faults that have none yet, from the blocks held now.
  void find_neighbours(const LiveBlocks& blocks);

  const std::vector<Fault>& all() const { return faults_; }
  uint64_t count() const { return count_; }
  // An overrun at the head of a block, chosen or not: a snapshot lists no block behind it.
  bool any_at_head() const { return any_at_head_; }

 private:
  std::vector<Fault> faults_;
  size_t placed_ = 0;  // faults whose neighbours were looked for
  uint64_t count_ = 0;
  bool any_at_head_ = false;
  Takes takes_;
};

}  // namespace quarl::report
