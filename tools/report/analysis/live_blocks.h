// SPDX-License-Identifier: Apache-2.0
// The heap blocks that are held, found by their address. Grows with the number held at once. Inline, because it runs
// for every record of a log.
#pragma once

#include <vector>

#include "report/analysis/live_entry.h"

namespace quarl::report {

class LiveBlocks {
 public:
  LiveBlocks();
  // The entry for the block at `address`, which is not 0. A new one has the address 0 until the caller fills it in; one
  // that has not is that of a block whose release was not recorded. The reference holds until the next call.
  LiveEntry& at(uint32_t address);
  // Takes the block out; null when it is not known. What it points to holds until the next call, but for the address.
  const LiveEntry* remove(uint32_t address);
  // Has the memory brought near that at() and remove() will need of `address`: first where it is looked for, then, some
  // time later, what is found there.
  void prefetch_slot(uint32_t address) const { __builtin_prefetch(&slots_[home(address)]); }
  void prefetch_block(uint32_t address) const { __builtin_prefetch(blocks_.data() + slots_[home(address)].block, 1); }

  template <typename Visit>
  void for_each(Visit visit) const {
    for (const LiveEntry& block : blocks_) {
      if (block.address != 0) visit(block);
    }
  }

 private:
  struct Slot {
    uint32_t address;  // 0 when free
    uint32_t block;    // index into blocks_
  };
  size_t home(uint32_t address) const {
    return static_cast<size_t>((address * uint64_t{0x9E3779B97F4A7C15}) >> shift_);
  }
  size_t next(size_t slot) const { return (slot + 1) & (slots_.size() - 1); }
  Slot& find(uint32_t address);  // the slot that holds it, or the free one where it belongs
  void close_hole(size_t hole);
  void grow();

  // Open addressing, a power of two, at most a quarter full: few searches then go beyond their first slot, and the
  // branch that was guessed wrong is what a search costs.
  std::vector<Slot> slots_;
  std::vector<LiveEntry> blocks_;  // address 0 in those that are free
  std::vector<uint32_t> free_;     // of blocks_; the last released is used first, while it is in the cache
  int shift_;                      // 64 - log2(slots)
};

inline LiveBlocks::Slot& LiveBlocks::find(uint32_t address) {
  size_t slot = home(address);
  while (slots_[slot].address != 0 && slots_[slot].address != address) slot = next(slot);
  return slots_[slot];
}

inline LiveEntry& LiveBlocks::at(uint32_t address) {
  Slot* slot = &find(address);
  if (slot->address != 0) return blocks_[slot->block];
  if (free_.empty()) {
    if ((blocks_.size() + 1) * 4 > slots_.size()) {
      grow();
      slot = &find(address);
    }
    free_.push_back(static_cast<uint32_t>(blocks_.size()));
    blocks_.emplace_back();
  }
  *slot = {address, free_.back()};
  free_.pop_back();
  return blocks_[slot->block];
}

inline const LiveEntry* LiveBlocks::remove(uint32_t address) {
  Slot& slot = find(address);
  if (address == 0 || slot.address == 0) return nullptr;
  LiveEntry& block = blocks_[slot.block];
  block.address = 0;
  free_.push_back(slot.block);
  close_hole(static_cast<size_t>(&slot - slots_.data()));
  return &block;
}

// The slots behind the hole move up, unless that would put them before their home.
inline void LiveBlocks::close_hole(size_t hole) {
  size_t mask = slots_.size() - 1;
  for (size_t slot = next(hole); slots_[slot].address != 0; slot = next(slot)) {
    size_t from_home = (slot - home(slots_[slot].address)) & mask;
    if (from_home < ((slot - hole) & mask)) continue;
    slots_[hole] = slots_[slot];
    hole = slot;
  }
  slots_[hole].address = 0;
}

}  // namespace quarl::report
