// SPDX-License-Identifier: Apache-2.0
#include "platform/process_end.h"

#include <stdlib.h>

#include "platform/system.h"
#include "platform/thread_cache.h"

namespace quarl {
namespace {

constinit thread_local const sigset_t* mask_at_end = nullptr;  // null: the thread's own

}  // namespace

void end_process() {
  leave_checker_for_good();
  if (mask_at_end != nullptr) sys::set_signal_mask(SIG_SETMASK, mask_at_end, nullptr);
  exit(0);
}

void set_mask_at_end(const sigset_t* mask) {
  mask_at_end = mask;
}

}  // namespace quarl
