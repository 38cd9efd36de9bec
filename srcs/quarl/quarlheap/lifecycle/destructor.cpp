// SPDX-License-Identifier: Apache-2.0
// Shut-down: on the thread that exits the process, which may hold hook_mutex (a signal handler that interrupted a hook
// called exit).
#include "logs/mappings/mapping_records.h"
#include "platform/checked_programs.h"
#include "platform/confinement.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "quarlheap/lifecycle/checker_end.h"
#include "quarlheap/lifecycle/exit_lock.h"
#include "quarlheap/model/used_list.h"
#include "quarlheap/upkeep/dump.h"
#include "quarlheap/upkeep/end_event.h"
#include "quarlheap/upkeep/interval_timer.h"

namespace quarl {
namespace {

void write_and_end() REQUIRES(hook_mutex) {
  const bool may_call = !confined();  // behind a filter all is written already, and the kernel cleans up
  if (may_call) run_exit_dump();
  if (may_call) tell_exit(0);
  if (may_call) release_all_record_pages();
  end_checker();
  if (may_call) delete_interval_timer();
}

[[gnu::destructor]] void stop() {
  if (left_alone()) return;
  const KeepErrno keep;
  {
    const InsideChecker inside;
    const ExitLock lock;
    hook_mutex.assert_held();
    if (lock.interrupted_a_hook()) expect_unfinished_list();
    if (!checker_has_ended()) write_and_end();
  }
  // Called from inside a hook or not, this thread is through with the checker: what it releases from here on goes back
  // to the allocator.
  leave_checker_for_good();
}

}  // namespace
}  // namespace quarl
