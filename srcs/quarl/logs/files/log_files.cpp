// SPDX-License-Identifier: Apache-2.0
#include "logs/files/log_files.h"

#include "logs/files/log_names.h"
#include "logs/files/sections.h"
#include "platform/confinement.h"
#include "platform/print.h"
#include "platform/system.h"
#include "state/process.h"

namespace quarl {

constinit LogHeader log_header{};
constinit RecordBuffer primary_buffer{};
constinit Log record_log("record", log_header, primary_buffer);
constinit Log snapshot_log("snapshot", log_header, primary_buffer);

namespace {

bool may_create(Log& log, const char* name) REQUIRES(hook_mutex) {
  if (Flags().set(kLogOverlay) && !log.created()) return true;
  return !log.exists(name);
}

}  // namespace

bool logs_are_possible() {
  static bool refused = false;
  if (layout_fits(0)) return true;
  if (!refused) {
    print_failure(kStderr, {"configuration"}, "QUARL_MAPS_SIZE %d is too large, no log is written.\n",
                  settings.maps_size_kb);
  }
  refused = true;
  primary_buffer.shut();
  return false;
}

const char* name_of_log_in_use(const Flags& flags) {
  return flags.record_log() ? record_log_name : snapshot_log_name;
}

Log* open_log(const Flags& flags) {
  if (flags.record_log() && record_log.is_open()) return record_log.ready() ? &record_log : nullptr;
  return flags.header() && snapshot_log.ready() ? &snapshot_log : nullptr;
}

void build_log_header() {
  log_header = identity_header();
  lay_out_from(0, &log_header);
  log_header.snapshot_number = 1;
}

void open_log_files() {
  const Flags flags;
  Log* log = log_in_use(flags);
  if (log == nullptr || !logs_are_possible()) return;
  if (log->is_open()) {
    log->ready();
  } else if (may_create(*log, name_of_log_in_use(flags))) {
    log->create(name_of_log_in_use(flags));
  }
}

void reopen_snapshot_log() {
  open_child_logs();
  if (log_in_use(Flags()) != &snapshot_log || snapshot_log.is_open()) return;
  if (snapshot_log.exists(snapshot_log_name)) snapshot_log.reopen(snapshot_log_name);
}

void open_child_logs() {
  if (!forked_child || confined() || record_log.created() || snapshot_log.created()) return;
  open_log_files();
}

void flush_to_record_log() {
  if (confined()) return primary_buffer.clear();
  const KeepErrno keep;  // of the hook whose record filled the buffer, also while a child makes its log
  open_child_logs();
  if (primary_buffer.count > 0) record_log.note_finding();
  record_log.flush();
}

}  // namespace quarl
