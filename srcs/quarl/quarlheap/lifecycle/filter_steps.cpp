// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/lifecycle/filter_steps.h"

#include <unistd.h>

#include "logs/files/log_files.h"
#include "logs/files/log_keeping.h"
#include "platform/confinement.h"
#include "platform/libc_hooks.h"
#include "platform/system.h"
#include "quarlheap/lifecycle/end_signals.h"
#include "quarlheap/lifecycle/exit_lock.h"
#include "quarlheap/upkeep/dump.h"
#include "quarlheap/upkeep/end_event.h"
#include "quarlheap/upkeep/interval_timer.h"
#include "state/process.h"
#include "state/settings.h"

namespace quarl {
namespace {

constinit int snap_interval GUARDED_BY(hook_mutex) = 0;  // as it was before

void write_all_there_is() REQUIRES(hook_mutex) {
  withdraw_end_signals();
  snap_interval = settings.snap_interval;
  pause_interval_timer();
  run_exit_dump();
  remove_logs_that_say_nothing();
  tell_confined();
  clear_flag(settings.cfg_flags, kReloadRequest);
}

void go_on() REQUIRES(hook_mutex) {
  settings.snap_interval = snap_interval;
  open_log_files();
  resume_interval_timer();
  install_end_signals();
}

// A child past fork (vfork, a raw clone) may have its parent's memory for its own, and is about to exec.
bool is_checked_process() {
  return hooks_installed != 0 && getpid() == proc_pid;
}

bool before(bool every_thread) {
  const KeepErrno keep;
  const InsideChecker inside;
  if (!confined() && !is_checked_process()) return false;
  {
    const ExitLock lock;
    hook_mutex.assert_held();
    if (!confined()) write_all_there_is();
  }
  {
    const ExitLock
        lock;  // anew: releasing it has written what waited for that, and now no other thread is about to write
    confine();
  }
  if (every_thread) await_own_calls();
  return true;
}

void after(bool set) {
  if (set) return;
  const KeepErrno keep;
  const InsideChecker inside;
  const ExitLock lock;
  hook_mutex.assert_held();
  end_confinement();
  if (!confined() && hooks_installed != 0) go_on();
}

}  // namespace

void register_filter_steps() {
  set_filter_steps({before, after});
}

}  // namespace quarl
