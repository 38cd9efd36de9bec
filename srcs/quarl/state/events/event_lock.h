// SPDX-License-Identifier: Apache-2.0
// The lock of events. Held with all signals held back, for the time of a few lines; nobody that holds it takes another.
#pragma once

#include <cstdint>

#include "platform/annotations.h"

namespace quarl {

class CAPABILITY("mutex") EventLock {
 public:
  // False when it is not to be had in time: its holder does not get on.
  bool take() TRY_ACQUIRE(true) NO_THREAD_SAFETY_ANALYSIS;
  void release() RELEASE() NO_THREAD_SAFETY_ANALYSIS;
  // In a forked child, whose only thread does not hold it.
  void reset_in_child() { word_ = kFree; }

 private:
  enum : uint32_t { kFree, kTaken, kWaitedFor };
  uint32_t word_ = kFree;
};

extern EventLock event_lock;

}  // namespace quarl
