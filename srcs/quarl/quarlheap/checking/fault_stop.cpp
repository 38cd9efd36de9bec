#include "quarlheap/checking/fault_stop.h"

#include <signal.h>

#include "platform/print.h"
#include "platform/seam.h"
#include "platform/thread_cache.h"
#include "quarlheap/lock/hook_lock.h"

namespace quarl {

void qr_fault_stop(int task_id, bool lock_held) NO_THREAD_SAFETY_ANALYSIS {
  if (lock_held) hook_mutex.unlock();
  // Blocked, or the signal's default action would end the whole process.
  sigset_t release;
  sigemptyset(&release);
  sigaddset(&release, kReleaseSignal);
  pthread_sigmask(SIG_BLOCK, &release, nullptr);
  int received = 0;
  if (sigwait(&release, &received) != 0) {
    print(kStdout, "sigwait failed!!taskId is %d!\n", task_id);
  } else {
    print(kStdout, "task: %d exit!!\n", task_id);
  }
  // The thread's last acts (its cleanup handlers, its C library's) allocate and release like any other's.
  leave_checker_for_good();
  end_thread();
}

}  // namespace quarl
