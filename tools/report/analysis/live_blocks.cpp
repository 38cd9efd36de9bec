#include "report/analysis/live_blocks.h"

#include <utility>

namespace quarl::report {

LiveBlocks::LiveBlocks() : slots_(1024), shift_(64 - 10) {}

size_t LiveBlocks::find(uint32_t address) const {
  size_t slot = home(address);
  while (slots_[slot].address != 0 && slots_[slot].address != address) slot = (slot + 1) & (slots_.size() - 1);
  return slot;
}

std::optional<LiveEntry> LiveBlocks::insert(const LiveEntry& block) {
  size_t slot = find(block.address);
  LiveEntry old = std::exchange(slots_[slot], block);
  if (old.address != 0) return old;
  if (++count_ * 2 > slots_.size()) grow();
  return std::nullopt;
}

// The entries behind the hole move up, unless that would put them before their home.
std::optional<LiveEntry> LiveBlocks::remove(uint32_t address) {
  size_t hole = find(address);
  if (address == 0 || slots_[hole].address == 0) return std::nullopt;
  LiveEntry removed = slots_[hole];
  size_t mask = slots_.size() - 1;
  for (size_t slot = (hole + 1) & mask; slots_[slot].address != 0; slot = (slot + 1) & mask) {
    size_t from_home = (slot - home(slots_[slot].address)) & mask;
    if (from_home < ((slot - hole) & mask)) continue;
    slots_[hole] = slots_[slot];
    hole = slot;
  }
  slots_[hole].address = 0;
  --count_;
  return removed;
}

void LiveBlocks::grow() {
  std::vector<LiveEntry> old = std::exchange(slots_, std::vector<LiveEntry>(slots_.size() * 2));
  --shift_;
  for (const LiveEntry& entry : old) {
    if (entry.address != 0) slots_[find(entry.address)] = entry;
  }
}

}  // namespace quarl::report
