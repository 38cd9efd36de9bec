// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/live_blocks.h"

#include <utility>

namespace quarl::report {

LiveBlocks::LiveBlocks() : slots_(1024), shift_(64 - 10) {}

void LiveBlocks::grow() {
  std::vector<Slot> old = std::exchange(slots_, std::vector<Slot>(slots_.size() * 2));
  --shift_;
  for (const Slot& slot : old) {
    if (slot.address != 0) find(slot.address) = slot;
  }
}

}  // namespace quarl::report
