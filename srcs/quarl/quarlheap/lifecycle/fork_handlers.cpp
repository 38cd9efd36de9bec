// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/lifecycle/fork_handlers.h"

#include <unistd.h>

#include "agent/agent.h"
#include "frames/rules.h"
#include "logs/files/log_files.h"
#include "logs/files/log_names.h"
#include "logs/files/maps_file.h"
#include "logs/mappings/unmappings.h"
#include "logs/snapshots/snapshot_chain.h"
#include "platform/confinement.h"
#include "platform/libc_hooks.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/checking/parked_threads.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/hooks/left_unmappings.h"
#include "quarlheap/upkeep/interval_timer.h"
#include "state/clock.h"
#include "state/events/event.h"
#include "state/process.h"

namespace quarl {
namespace {

// A fork inside a signal handler that interrupted a hook finds the lock taken by its own thread, and leaves it so.
void before_fork() NO_THREAD_SAFETY_ANALYSIS {
  const KeepErrno keep;
  if (!hook_mutex.held_by_this_thread()) hook_mutex.hold_for_fork();
  unmappings.await_results();
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
  forget_faults_found();
  inherited_seq_num = last_seq_num;
  forget_interval_timer();
  forget_all_parked();
  settings.snap_interval = 0;
  if (confined()) return;  // it inherits the filter, and writes nothing
  proc_pid = getpid();
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
  const int task = current_tid();  // in the parent
  forget_thread_identity();
  settle_frames_in_child();
  hook_mutex.reset_in_child();
  leave_parent_events();
  const ScopedLock lock;
  become_own_process();
  if (whole) {
    settle_unmappings_left_behind(task);
  } else {
    go_on_unchecked();
  }
}

}  // namespace

void register_fork_handlers() {
  set_fork_steps({before_fork, after_fork_in_parent, after_fork_in_child});
}

}  // namespace quarl
