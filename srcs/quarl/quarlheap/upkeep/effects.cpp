// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/effects.h"

#include <signal.h>
#include <stdlib.h>

#include "config/item_setters.h"
#include "logs/files/log_names.h"
#include "logs/statistics/statistics.h"
#include "platform/libc_hooks.h"
#include "platform/print.h"
#include "quarlheap/checking/heap_check.h"
#include "quarlheap/upkeep/auto_snapshot.h"
#include "quarlheap/upkeep/dump.h"
#include "quarlheap/upkeep/interval_timer.h"
#include "state/process.h"
#include "state/settings.h"

namespace quarl {
namespace {

// Items count in the units of the logs, which they do not know.
static_assert(kRecordSize == sizeof(OpRecord) && kMaxDepth == kMaxTrace);

void keep_statistics() {
  if (!make_prof_info()) clear_flag(settings.cfg_flags, kProf);
}

void keep_threads() {
  if (!make_thread_table()) clear_flag(settings.cfg_flags, kThread);
}

void refuse_threads() {
  make_thread_table();
  print_failure(kStdout, {"configuration"}, "Can not set thread type.For the PROF function is not set.\n");
}

void trace_mappings(int on) {
  QR_TRACE_MMAP = on;
  if (prof_info != nullptr) prof_info->trace_mmap = static_cast<uint32_t>(on);
}

// glibc's programs count on a signal that they inherit ignored (nohup and its like).
bool is_to_stay_ignored(int number) {
  struct sigaction inherited {};
  return keeps_libc_promises() && sigaction(number, nullptr, &inherited) == 0 && inherited.sa_handler == SIG_IGN;
}

void offer_dump_signal(int number) {
  if (is_to_stay_ignored(number)) {
    settings.dump_signal = 0;
  } else {
    signal(number, handle_dump_signal);
  }
}

// A forked child has no timer, and its parent's configuration file must not end it.
void refuse_snapshots() {
  if (forked_child) return;
  print_failure(kStdout, {"timer"},
                "Get time function is invalid, can not get snapshot info of memory automatically!\n");
  hook_mutex.assert_held();
  hook_mutex.leave_for_release(kPendingEnd);
}

}  // namespace

void carry_out(const Effect& effect) {
  switch (effect.kind) {
    case Effect::kNone:
      return;
    case Effect::kNameLogs:
      return set_log_names(effect.text);
    case Effect::kOfferDumpSignal:
      return offer_dump_signal(effect.number);
    case Effect::kHandleDumpSignal:
      signal(effect.number, handle_dump_signal);
      return;
    case Effect::kMakeStatistics:
      return keep_statistics();
    case Effect::kMakeThreadTable:
      return keep_threads();
    case Effect::kRefuseThreads:
      return refuse_threads();
    case Effect::kTraceMappings:
      return trace_mappings(effect.number);
    case Effect::kSeedRandom:
      if (!forked_child) srandom(static_cast<unsigned>(proc_pid));  // a child draws numbers of its own
      return;
    case Effect::kSetTimerSignal:
      qr_sig_num = effect.number;
      return;
    case Effect::kStartTimer:
      return start_interval_timer(effect.number);
    case Effect::kScheduleSnapshots:
      return schedule_auto_snapshots(effect.number);
    case Effect::kRefuseSnapshots:
      return refuse_snapshots();
    case Effect::kHandleCheckSignal:
      signal(effect.number, handle_check_signal);
      return;
  }
}

}  // namespace quarl
