// The sections of a log file before its records: maps, statistics, threads. The file's position moves along.
#pragma once

#include "logs/log_file.h"
#include "quarlheap/lock/hook_lock.h"

namespace quarl {

// Copies the maps text from the maps file's position to the file's, cut after the last whole line that leaves room for
// a NUL in the section. Returns its bytes.
size_t copy_maps_text(LogFile& file) REQUIRES(hook_mutex);

// The statistics block and the thread table at the present position, zeros in place of what does not exist.
void write_profile_block(LogFile& file) REQUIRES(hook_mutex);
void write_thread_table(LogFile& file) REQUIRES(hook_mutex);

// Refresh the sections of an open log at the places that the main header names; the position is at the end of the file
// afterwards. Failures are told on standard output.
void refresh_maps_section(LogFile& file) REQUIRES(hook_mutex);
void refresh_statistics_sections(LogFile& file) REQUIRES(hook_mutex);

}  // namespace quarl
