// The heap blocks that are held, found by their address. Grows with the number held at once.
#pragma once

#include <optional>
#include <vector>

#include "report/analysis/live_entry.h"

namespace quarl::report {

class LiveBlocks {
 public:
  LiveBlocks();
  // Adds a block whose address is not 0. A block already known at that address is replaced and returned: its release
  // was not recorded.
  std::optional<LiveEntry> insert(const LiveEntry& block);
  // Takes the block out, nothing when it is not known.
  std::optional<LiveEntry> remove(uint32_t address);
  size_t size() const { return count_; }
  // Has the memory where `address` will be looked for brought near.
  void prefetch(uint32_t address) const { __builtin_prefetch(&slots_[home(address)]); }

  template <typename Visit>
  void for_each(Visit visit) const {
    for (const LiveEntry& slot : slots_) {
      if (slot.address != 0) visit(slot);
    }
  }

 private:
  size_t home(uint32_t address) const {
    return static_cast<size_t>((address * uint64_t{0x9E3779B97F4A7C15}) >> shift_);
  }
  size_t find(uint32_t address) const;  // the slot that holds it, or the free one where it belongs
  void grow();

  std::vector<LiveEntry> slots_;  // open addressing, a power of two, at most half full
  size_t count_ = 0;
  int shift_;  // 64 - log2(slots)
};

}  // namespace quarl::report
