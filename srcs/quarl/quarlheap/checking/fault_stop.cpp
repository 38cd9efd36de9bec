#include "quarlheap/checking/fault_stop.h"

#include <signal.h>

#include "platform/confinement.h"
#include "platform/libc_hooks.h"
#include "platform/print.h"
#include "platform/thread_cache.h"
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
  pthread_sigmask(SIG_BLOCK, &release, nullptr);
}

}  // namespace

// Behind a filter of system calls, which may not know this one, the report is to come first.
void expect_release() {
  if (!confined()) block_release();
}

void qr_fault_stop(int task_id, bool lock_held) NO_THREAD_SAFETY_ANALYSIS {
  block_release();
  if (lock_held) hook_mutex.unlock();
  const sigset_t release = release_set();
  int received = 0;
  if (sigwait(&release, &received) != 0) {
    print(kStdout, "sigwait failed!!taskId is %d!\n", task_id);
  } else {
    print(kStdout, "task: %d exit!!\n", task_id);
  }
  // The thread's last acts (its cleanup handlers, its C library's) allocate and release like any other's.
  thread_cache().ending = true;
  leave_checker_for_good();
  end_thread();
}

}  // namespace quarl
