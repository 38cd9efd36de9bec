#include "logs/dump.h"

#include <time.h>

#include "logs/auto_snapshot.h"
#include "logs/histogram.h"
#include "logs/log_files.h"
#include "logs/mapping_records.h"
#include "logs/record_buffer.h"
#include "logs/sections.h"
#include "logs/snapshot.h"
#include "logs/statistics.h"
#include "platform/print.h"
#include "quarlheap/checking/heap_check.h"
#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

bool printing(const Flags& flags) {
  return flags.in_force(kPrintProfinfo | kProf);
}

void refresh_main_header() REQUIRES(hook_mutex) {
  main_header.record_count = 0;
  main_header.time = static_cast<uint32_t>(time(nullptr));
  main_header.next_snapshot = 0;
  if (record_log.seek_or_tell(0)) record_log.write_or_tell(&main_header, sizeof main_header);
}

// Header, maps and statistics of the log in use.
void refresh_sections(const Flags& flags, bool with_statistics) REQUIRES(hook_mutex) {
  if (flags.record_log() && record_log.is_open()) {
    refresh_main_header();
    refresh_maps_section(record_log);
    if (with_statistics) refresh_statistics_sections(record_log);
  } else if (flags.header() && snapshot_log.is_open()) {
    refresh_maps_section(snapshot_log);
    if (with_statistics) refresh_statistics_sections(snapshot_log);
  }
}

void snapshot_if_in_use(const Flags& flags) REQUIRES(hook_mutex) {
  if (snapshot_log_in_use(flags) && snapshot_log.is_open()) write_snapshot();
}

void tell_where(const Flags& flags) {
  if (!printing(flags)) return;
  if (flags.record_log()) {
    print(kStdout, "Log info has been saved to log file %s.\n", record_log_name);
  } else if (flags.header()) {
    print(kStdout, "Log info has been saved to log file %s.\n", snapshot_log_name);
  }
}

void final_auto_snapshot() REQUIRES(hook_mutex) {
  if (timer_clock_on == 0 || snap_interval < 1) return;
  snap_interval = 0;
  ++snap_count;
  write_auto_snapshot();
}

}  // namespace

void handle_dump_signal(int) {
  request_reload();
  hook_mutex.request(kPendingDump);
}

void run_signal_dump() {
  const Flags flags;
  reopen_snapshot_log();
  if (printing(flags)) print_statistics_guarded();
  refresh_sections(flags, true);
  if (flags.record_log() && record_log.is_open()) {
    flush_to_record_log();
    qr_heap_check();
  }
  snapshot_if_in_use(flags);
  snapshot_log.close();
  tell_where(flags);
}

void run_exit_dump() {
  const Flags flags;
  final_auto_snapshot();
  reopen_snapshot_log();
  if (printing(flags)) print_statistics();
  refresh_sections(flags, flags.prof());
  if (flags.record_log()) flush_to_record_log();
  if (flags.check_trigger(kSlopExit)) qr_heap_check();
  snapshot_if_in_use(flags);
  if (flags.record_log() && (heap_block_head != 0 || useed_head != nullptr)) print_unfreed_table();
}

void close_log_files() {
  record_log.close();
  maps_file.close();
  snapshot_log.close();
  autosnap_log.close();
  stop_recording();
}

void leave_parent_logs() {
  record_log.forget();
  snapshot_log.forget();
  forget_auto_snapshots();
  primary_buffer.count = 0;
  autosnap_buffer.count = 0;
}

}  // namespace quarl
