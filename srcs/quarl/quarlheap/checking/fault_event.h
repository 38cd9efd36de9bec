// SPDX-License-Identifier: Apache-2.0
// The event of a fault: which block, what is wrong with it, and who met it.
#pragma once

#include "quarlheap/checking/block_check.h"

namespace quarl {

// What looks at blocks at this moment, over its lifetime; the faults that it meets are told with it. Between unsaid
// ones a fault that stops its thread was met by a resize, any other by a check that no call of the program asked for.
class FoundBy {
 public:
  enum Way : uint8_t { kUnsaid, kRelease, kSearch, kCalledCheck, kExit };

  explicit FoundBy(Way way) REQUIRES(hook_mutex);
  ~FoundBy();
  FoundBy(const FoundBy&) = delete;
  FoundBy& operator=(const FoundBy&) = delete;

 private:
  const Way before_;
};

// For a fault that stops the calling thread, which is told next: it goes back to no FoundBy.
void expect_fault_that_stops(bool search) REQUIRES(hook_mutex);

// Counts the fault and tells it.
void tell_fault(DoubtfulBlock block, FaultCode code) REQUIRES(hook_mutex);

// Faults found in this process.
uint32_t faults_found() REQUIRES(hook_mutex);
void forget_faults_found() REQUIRES(hook_mutex);  // in a forked child

}  // namespace quarl
