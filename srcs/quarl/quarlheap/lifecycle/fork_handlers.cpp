#include "quarlheap/lifecycle/fork_handlers.h"

#include <pthread.h>
#include <unistd.h>

#include "agent/agent.h"
#include "logs/dump.h"
#include "logs/log_files.h"
#include "logs/log_names.h"
#include "platform/system.h"
#include "platform/thread_cache.h"

namespace quarl {
namespace {

// True while this fork has taken the lock: a fork inside a signal handler that interrupted a hook finds it taken by its
// own thread. Written under the lock.
bool taken_for_fork = false;

void before_fork() NO_THREAD_SAFETY_ANALYSIS {
  if (hook_mutex.held_by_this_thread()) return;
  hook_mutex.lock();
  taken_for_fork = true;
}

void after_fork_in_parent() NO_THREAD_SAFETY_ANALYSIS {
  if (!taken_for_fork) return;
  taken_for_fork = false;
  hook_mutex.unlock();
}

void become_own_process() REQUIRES(hook_mutex) {
  forked_child = true;
  proc_pid = getpid();
  timer_clock_on = 0;
  timer_interval = 0;
  snap_interval = 0;
  renew_log_names();
  leave_parent_logs();
  leave_parent_agent();
  build_headers();
  maps_file.close();
  open_maps_file();
}

void after_fork_in_child() NO_THREAD_SAFETY_ANALYSIS {
  const KeepErrno keep;
  const InsideChecker inside;
  forget_thread_identity();
  taken_for_fork = false;
  hook_mutex.reset_in_child();
  const ScopedLock lock;
  become_own_process();
}

}  // namespace

void register_fork_handlers() {
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace quarl
