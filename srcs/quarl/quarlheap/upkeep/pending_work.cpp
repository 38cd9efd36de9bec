// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/pending_work.h"

#include "platform/confinement.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/heap_check.h"
#include "quarlheap/upkeep/auto_snapshot.h"
#include "quarlheap/upkeep/dump.h"
#include "state/process.h"

namespace quarl {

void do_pending_work(uint32_t work) {
  hook_mutex.assert_held();
  if (hooks_installed == 0) return;  // after the end: the last snapshot is to stay
  const InsideChecker inside;
  if (confined()) work &= kPendingCheck;  // the others write
  if ((work & kPendingTick) != 0) take_due_snapshot();
  if ((work & kPendingCheck) != 0) qr_heap_check();
  if ((work & kPendingDump) != 0) run_signal_dump();
}

}  // namespace quarl
