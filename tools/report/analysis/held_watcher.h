// SPDX-License-Identifier: Apache-2.0
// What a ledger tells while it is filled: each change of what is held, and each record that made it.
#pragma once

#include "report/analysis/live_entry.h"

namespace quarl::report {

class Ledger;

enum class Going {
  kReleased,  // by a record of its release
  kCarried,   // a mapping that turned out to carry one large block: it was never the application's
  kLost,      // its release is not in the log, and its address was given out again
};

class HeldWatcher {
 public:
  virtual ~HeldWatcher() = default;
  // `entry` is held from now on.
  virtual void came(const LiveEntry& entry, const OpRecord& by) = 0;
  // `entry` is held no more, since `by`. Of a released block the address is the record's alone.
  virtual void went(const LiveEntry& entry, Going how, const OpRecord& by) = 0;
  // The ledger has taken `record`, and told of all that it changed.
  virtual void passed(const OpRecord& record, const Ledger& ledger) = 0;
};

}  // namespace quarl::report
