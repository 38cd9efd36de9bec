// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/fault_stop.h"

#include <signal.h>

#include "platform/confinement.h"
#include "platform/libc_hooks.h"
#include "platform/print.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "state/events/event.h"
#include "state/hook_lock.h"

namespace quarl {
namespace {

sigset_t release_set() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, kReleaseSignal);
  return set;
}

void block_release() {
  const sigset_t release = release_set();
  sys::set_signal_mask(SIG_BLOCK, &release, nullptr);
}

void tell_parked(int task_id, StopReason reason) {
  const Event event("parked");
  if (!event) return;
  const char* why = reason == StopReason::kFault       ? "fault"
                    : reason == StopReason::kHeapLimit ? "heap-limit"
                                                       : "stack-limit";
  event.line().number("thread", static_cast<uint32_t>(task_id)).text("why", why);
}

void tell_ended(int task_id) {
  const Event event("ended");
  if (event) event.line().number("thread", static_cast<uint32_t>(task_id));
}

}  // namespace

// Behind a filter of system calls, which may not know this one, the report is to come first.
void expect_release() {
  if (!confined()) block_release();
}

void qr_fault_stop(int task_id, bool lock_held, StopReason reason) NO_THREAD_SAFETY_ANALYSIS {
  block_release();
  if (lock_held) hook_mutex.unlock();
  note_parked(task_id, reason);
  tell_parked(task_id, reason);
  const sigset_t release = release_set();
  int received = 0;
  if (sigwait(&release, &received) != 0) {
    print(kStdout, "sigwait failed!!taskId is %d!\n", task_id);
  } else {
    print(kStdout, "task: %d exit!!\n", task_id);
    tell_ended(task_id);
  }
  forget_parked(task_id);
  // The thread's last acts (its cleanup handlers, its C library's) allocate and release like any other's.
  thread_cache().ending = true;
  leave_checker_for_good();
  end_thread();
}

}  // namespace quarl
