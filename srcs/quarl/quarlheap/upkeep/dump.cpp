// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/dump.h"

#include "logs/files/log_files.h"
#include "logs/files/log_names.h"
#include "logs/statistics/statistics.h"
#include "platform/confinement.h"
#include "platform/print.h"
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/checking/heap_check.h"
#include "quarlheap/upkeep/auto_snapshot.h"
#include "quarlheap/upkeep/unfreed.h"

namespace quarl {
namespace {

// Header, maps and statistics of the log that is written to. The header of a snapshot log follows with its snapshot.
void refresh_sections(const Flags& flags, bool with_statistics) REQUIRES(hook_mutex) {
  Log* log = open_log(flags);
  if (log == nullptr) return;
  if (log == &record_log) log->refresh_header();
  log->refresh_maps();
  if (with_statistics) log->refresh_statistics();
}

void snapshot_if_in_use(const Flags& flags, const char* kind) REQUIRES(hook_mutex) {
  if (log_in_use(flags) == &snapshot_log && snapshot_log.ready()) write_snapshot(kind);
}

void tell_where(const Flags& flags) REQUIRES(hook_mutex) {
  if (!flags.prints_statistics() || log_in_use(flags) == nullptr) return;
  print(kStdout, "Log info has been saved to log file %s.\n", name_of_log_in_use(flags));
}

}  // namespace

void handle_dump_signal(int) {
  if (confined()) return;
  request_reload();
  hook_mutex.request(kPendingDump);
}

void run_signal_dump() {
  const Flags flags;
  reopen_snapshot_log();
  if (flags.prints_statistics()) print_statistics_guarded();
  refresh_sections(flags, true);
  if (flags.record_log() && record_log.is_open()) {
    flush_to_record_log();
    qr_heap_check();
  }
  snapshot_if_in_use(flags, "dump");
  snapshot_log.close();
  tell_where(flags);
}

void run_exit_dump() {
  const Flags flags;
  const FoundBy exit(FoundBy::kExit);
  take_final_snapshot();
  reopen_snapshot_log();
  if (flags.prints_statistics()) print_statistics();
  refresh_sections(flags, flags.prof());
  if (flags.record_log()) flush_to_record_log();
  if (flags.check_trigger(kSlopExit)) qr_heap_check();
  snapshot_if_in_use(flags, "exit");
  if (flags.record_log()) print_unfreed_table();
}

}  // namespace quarl
