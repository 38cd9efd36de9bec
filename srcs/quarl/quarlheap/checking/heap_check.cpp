// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/heap_check.h"

#include "config/item_setters.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/checking/fault_report.h"
#include "quarlheap/model/used_list.h"
#include "state/process.h"

namespace quarl {
namespace {

bool wanted(int number) {
  const Flags flags;
  if (flags.check_trigger(kSlopTimer) && flags.in_force(kTimer) && number == kCheckTimerSignal) return true;
  return flags.check_trigger(kSlopUser);
}

}  // namespace

void qr_heap_check() {
  for (BlockWalk walk; walk.here(); walk.step()) {
    const FaultCode code = check_on_walk(walk.block());
    if (code != QR_FAULT_NONE) qr_report_fault(walk.block(), code);
    if (code == QR_FAULT_HEAD) return;
  }
}

void handle_check_signal(int number) {
  if (wanted(number)) hook_mutex.request(kPendingCheck);
}

}  // namespace quarl

extern "C" QUARL_EXPORT void quarl_check_mem(void) {
  using namespace quarl;
  // At the end of the process blocks go without leaving the list.
  if (!Flags().check_trigger(kSlopApi) || hooks_installed == 0) return;
  const KeepErrno keep;
  // From an application's handler that interrupted a hook on this very thread the lock cannot be had: the check runs
  // when the hook releases it.
  if (hook_mutex.held_by_this_thread()) {
    hook_mutex.request(kPendingCheck);
    return;
  }
  const InsideChecker inside;  // a handler that interrupts the check may allocate
  const ScopedLock lock;
  const FoundBy call(FoundBy::kCalledCheck);
  qr_heap_check();
}
