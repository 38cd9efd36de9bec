// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/agent_line.h"

#include "config/configuration.h"
#include "logs/files/log_files.h"
#include "logs/statistics/statistics.h"
#include "platform/confinement.h"
#include "quarlheap/checking/heap_check.h"
#include "quarlheap/upkeep/effects.h"
#include "state/process.h"

namespace quarl {
namespace {

// The records of a log that the line switches on have nowhere to go else.
void make_record_log(const Flags& flags) REQUIRES(hook_mutex) {
  if (flags.record_log() && !record_log.is_open() && !confined()) open_log_files();
}

void act(const Flags& flags) REQUIRES(hook_mutex) {
  make_record_log(flags);
  if (flags.in_force(kMemCheck) && flags.guard()) qr_heap_check();
  if (flags.prints_statistics()) print_statistics();
  if (flags.set(kReset)) {
    reset_statistics();
    clear_flag(settings.cfg_flags, kReset);
  }
}

}  // namespace

void take_agent_line(const char* line) {
  const ScopedLock lock;
  if (hooks_installed == 0) return;  // the process ends
  if (apply_line(line, carry_out) == 0 && !hook_mutex.ends_at_release()) act(Flags());
}

}  // namespace quarl
