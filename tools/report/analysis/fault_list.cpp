// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/fault_list.h"

#include <algorithm>

namespace quarl::report {
namespace {

constexpr size_t kMaxKept = 1000;

bool same_fault(const OpRecord& a, const OpRecord& b) {
  return a.start_addr == b.start_addr && a.result == b.result && a.seq_num == b.seq_num && a.size == b.size;
}

// Bytes from the end of a block to the start of the next one.
uint32_t gap(uint32_t lower, uint32_t lower_size, uint32_t upper) {
  uint64_t end = uint64_t{lower} + lower_size;
  return end >= upper ? 0 : static_cast<uint32_t>(upper - end);
}

void consider(Fault& fault, const LiveEntry& block) {
  const OpRecord& record = fault.record;
  if (block.address < record.start_addr && (!fault.below || block.address > fault.below->block.address)) {
    fault.below = {block, gap(block.address, block.size, record.start_addr)};
  }
  if (block.address > record.start_addr && (!fault.above || block.address < fault.above->block.address)) {
    fault.above = {block, gap(record.start_addr, record.size, block.address)};
  }
}

}  // namespace

void FaultList::add(const OpRecord& record) {
  any_at_head_ = any_at_head_ || record.result == kKindSlopHead;
  if (takes_ && !takes_(record)) return;
  bool known =
      std::any_of(faults_.begin(), faults_.end(), [&](const Fault& f) { return same_fault(f.record, record); });
  if (known) return;
  ++count_;
  if (faults_.size() < kMaxKept) faults_.push_back({record, {}, {}});
}

void FaultList::find_neighbours(const LiveBlocks& blocks) {
  if (placed_ == faults_.size()) return;
  blocks.for_each([&](const LiveEntry& block) {
    for (size_t index = placed_; index < faults_.size(); ++index) consider(faults_[index], block);
  });
  placed_ = faults_.size();
}

}  // namespace quarl::report
