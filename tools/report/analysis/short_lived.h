// SPDX-License-Identifier: Apache-2.0
// Blocks that live for a moment only: what is asked for and given back at once, by site. Often a buffer that could be
// kept, or lie on the stack.
#pragma once

#include <deque>
#include <optional>

#include "report/analysis/ledger.h"
#include "report/analysis/selection.h"
#include "report/analysis/site_sums.h"

namespace quarl::report {

// A block is temporary when the thread that asked for it releases it (or resizes it, which releases the old block)
// before its own next allocation; or, with `within` N, when the release is among the N operations (allocations and
// releases) of that thread that follow the allocation. Records without a thread are taken as those of one.
class ShortLived : public HeldWatcher {
 public:
  // The others must outlive this; `ledger` is the one that tells it. `within`: 0 for up to the next allocation.
  ShortLived(Grouping grouping, Chooser& chooser, const Ledger& ledger, uint32_t within)
      : chooser_(chooser), ledger_(ledger), within_(within), sums_(grouping) {}
  void came(const LiveEntry& entry, const OpRecord& by) override;
  void went(const LiveEntry& entry, Going how, const OpRecord& by) override;
  void passed(const OpRecord&, const Ledger&) override {}

  // Before the first record: who is to be told of each block that counts.
  void tell(SiteSums::Listener listener) { sums_.tell(std::move(listener)); }
  // To be called after the last record.
  void fill(SiteTable& table);
  // Blocks and mappings of the selection that were released in all.
  const Usage& released() const { return released_; }

 private:
  struct Resized {
    LiveEntry entry;
    uint32_t taken;  // records before that of its release
  };
  struct Thread {
    std::optional<uint32_t> last_allocated;  // LiveEntry::born of its latest block
    std::deque<uint32_t> operations;         // records taken before each of its last ones; `within` and one at most
    std::optional<Resized> resized;          // by its last operation, if that goes well
  };
  uint32_t born(const LiveEntry& entry) const;
  bool is_temporary(const LiveEntry& entry, const Thread& thread) const;
  void note_operation(Thread& thread, uint32_t taken) const;
  void release(const LiveEntry& entry, uint32_t by, const Thread& thread);
  void settle(uint32_t tid, Thread& thread);
  void put_back(const LiveEntry& entry);

  Chooser& chooser_;
  const Ledger& ledger_;
  uint32_t within_;
  SiteSums sums_;
  Usage released_;
  std::unordered_map<uint32_t, Thread> threads_;    // by tid
  std::unordered_map<uint32_t, uint32_t> earlier_;  // of blocks put back: their first LiveEntry::born, by the new one
};

}  // namespace quarl::report
