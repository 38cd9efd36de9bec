// The three log files, the maps file that they copy, and the two header images.
#pragma once

#include "config/state/config_state.h"
#include "logs/format.h"
#include "logs/log_file.h"
#include "quarlheap/lock/hook_lock.h"

namespace quarl {

extern LogFile record_log GUARDED_BY(hook_mutex);
extern LogFile snapshot_log GUARDED_BY(hook_mutex);
extern LogFile autosnap_log GUARDED_BY(hook_mutex);
extern LogFile maps_file GUARDED_BY(hook_mutex);  // /proc/PID/maps, open for the whole run

extern LogHeader main_header GUARDED_BY(hook_mutex);  // of the record log and the snapshot log
extern LogHeader autosnap_header GUARDED_BY(hook_mutex);

inline uint32_t maps_section_size() {
  return static_cast<uint32_t>(maps_size_kb) * 1024;
}

// Opens /proc/PID/maps of this process.
void open_maps_file() REQUIRES(hook_mutex);

// Fills both header images, allocates the record buffers and sets up the record pages. Once, after configuration.
void build_headers_and_buffers() REQUIRES(hook_mutex);
void build_headers() REQUIRES(hook_mutex);

// Creates the record log or the snapshot log, whichever the configuration asks for, unless it is open or a file of its
// name exists (QUARL_LOG_OVERLAY overwrites one that this process has not made itself).
void open_log_files() REQUIRES(hook_mutex);

// Opens the snapshot log again, when it is in use, closed, and its file exists.
void reopen_snapshot_log() REQUIRES(hook_mutex);

// A forked child makes its log files when it first has something to write: most children only exec.
void open_child_logs() REQUIRES(hook_mutex);

bool snapshot_log_in_use(const Flags& flags);

}  // namespace quarl
