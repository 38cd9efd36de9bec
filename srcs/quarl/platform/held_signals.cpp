// SPDX-License-Identifier: Apache-2.0
#include "platform/held_signals.h"

#include <signal.h>
#include <sys/syscall.h>

#include "platform/confinement.h"
#include "platform/system.h"
#include "platform/system_call.h"

namespace quarl {
namespace {

// Past the C library, which leaves its own signals out.
bool set_mask(const uint64_t* mask, uint64_t* before) {
  const KeepErrno keep;
  const OwnCall own;
  return !own.refused() && system_call(SYS_rt_sigprocmask, SIG_SETMASK, mask, before, sizeof *mask) == 0;
}

}  // namespace

HeldSignals::HeldSignals(bool wanted) {
  const uint64_t all = ~uint64_t{0};
  held_ = wanted && set_mask(&all, &before_);
}

HeldSignals::~HeldSignals() {
  if (held_) set_mask(&before_, nullptr);
}

}  // namespace quarl
