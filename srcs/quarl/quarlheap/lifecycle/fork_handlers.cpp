#include "quarlheap/lifecycle/fork_handlers.h"

#include <unistd.h>

#include "agent/agent.h"
#include "logs/files/log_files.h"
#include "logs/files/log_names.h"
#include "logs/files/maps_file.h"
#include "logs/snapshots/snapshot_chain.h"
#include "platform/libc_hooks.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/upkeep/interval_timer.h"
#include "state/clock.h"
#include "state/process.h"

namespace quarl {
namespace {

// A fork inside a signal handler that interrupted a hook finds the lock taken by its own thread, and leaves it so.
void before_fork() {
  if (!hook_mutex.held_by_this_thread()) hook_mutex.hold_for_fork();
}

void after_fork_in_parent() {
  hook_mutex.end_fork_hold();
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
  maps_file.open_quietly();
}

// Somebody took the lock over before the process was copied: what it guards may have been copied halfway through a
// change, and nobody is left to finish it. Blocks with a header are known to the layer, which releases them.
void go_on_unchecked() REQUIRES(hook_mutex) {
  clear_flag(settings.cfg_flags, kAll);
  restore_hooks();
}

void after_fork_in_child() NO_THREAD_SAFETY_ANALYSIS {
  const KeepErrno keep;
  const InsideChecker inside;
  const bool whole = hook_mutex.held_for_fork() || hook_mutex.held_by_this_thread();
  forget_thread_identity();
  hook_mutex.reset_in_child();
  const ScopedLock lock;
  become_own_process();
  if (!whole) go_on_unchecked();
}

}  // namespace

void register_fork_handlers() {
  set_fork_steps({before_fork, after_fork_in_parent, after_fork_in_child});
}

}  // namespace quarl
