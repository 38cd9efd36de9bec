#include "quarlheap/lifecycle/fork_handlers.h"

#include <pthread.h>
#include <unistd.h>

#include "agent/agent.h"
#include "logs/files/log_files.h"
#include "logs/files/log_names.h"
#include "logs/files/maps_file.h"
#include "logs/snapshots/snapshot_chain.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "quarlheap/upkeep/interval_timer.h"
#include "state/clock.h"
#include "state/process.h"

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

// Nothing of the parent's files is written any more; the child's own are made when needed.
void leave_parent_logs() REQUIRES(hook_mutex) {
  record_log.forget();
  snapshot_log.forget();
  snapshot_chain.forget();
  primary_buffer.clear();
}

void become_own_process() REQUIRES(hook_mutex) {
  forked_child = true;
  proc_pid = getpid();
  inherited_seq_num = last_seq_num;
  forget_interval_timer();
  settings.snap_interval = 0;
  renew_log_names();
  leave_parent_logs();
  leave_parent_agent();
  build_log_header();
  snapshot_chain.build_header();
  maps_file.open();
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
