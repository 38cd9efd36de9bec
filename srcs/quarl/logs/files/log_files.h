// SPDX-License-Identifier: Apache-2.0
// The record log and the snapshot log, of which the configuration has one in use, and their opening.
#pragma once

#include "logs/files/log.h"
#include "state/settings.h"

namespace quarl {

// They share one header image and the primary buffer: what one left in the buffer goes to the other.
extern LogHeader log_header GUARDED_BY(hook_mutex);
extern RecordBuffer primary_buffer GUARDED_BY(hook_mutex);  // of the hooks and fault reports

extern Log record_log GUARDED_BY(hook_mutex);
extern Log snapshot_log GUARDED_BY(hook_mutex);

// The log that the flags have in use, null when there is none.
inline Log* log_in_use(const Flags& flags) REQUIRES(hook_mutex) {
  return flags.record_log() ? &record_log : flags.header() ? &snapshot_log : nullptr;
}
const char* name_of_log_in_use(const Flags& flags);

// Where a fault or a dump goes: the record log when it is in use and open, else the snapshot log when blocks have
// headers and it is open, else null.
Log* open_log(const Flags& flags) REQUIRES(hook_mutex);

// False when QUARL_MAPS_SIZE asks for more than a log can hold: none is created then, and records are dropped without a
// word. Told once, on standard error.
bool logs_are_possible() REQUIRES(hook_mutex);

// Fills the header image; once, after configuration, and again in a forked child.
void build_log_header() REQUIRES(hook_mutex);

// Creates the log that is in use, unless it is open or a file of its name exists (QUARL_LOG_OVERLAY overwrites one that
// this process has not made itself). One that is open and was begun on a full disk is begun anew.
void open_log_files() REQUIRES(hook_mutex);

// Opens the snapshot log again, when it is in use, closed, and its file exists.
void reopen_snapshot_log() REQUIRES(hook_mutex);

// A forked child makes its log files when it first has something to write: most children only exec.
void open_child_logs() REQUIRES(hook_mutex);

// Writes the waiting records to the record log.
[[gnu::cold, gnu::noinline]] void flush_to_record_log() REQUIRES(hook_mutex);

}  // namespace quarl
