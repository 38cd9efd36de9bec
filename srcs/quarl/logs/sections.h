// The sections of a log file before its records: maps, statistics, threads. The file's position moves along.
#pragma once

#include "logs/format.h"
#include "logs/log_file.h"
#include "quarlheap/lock/hook_lock.h"

namespace quarl {

// Sets the offsets in the header of a log, or of a snapshot in one, that begins at `start`.
void lay_out_from(int64_t start, LogHeader* header);

// Writes the maps of this moment into their section, which is full of zeros. The position is undefined afterwards.
void fill_maps_section(LogFile& file, const LogHeader& header) REQUIRES(hook_mutex);

// The statistics block and the thread table at the present position, zeros in place of what does not exist.
void write_profile_block(LogFile& file) REQUIRES(hook_mutex);
void write_thread_table(LogFile& file) REQUIRES(hook_mutex);

// Refresh the sections of an open log at the places that the main header names; the position is at the end of the file
// afterwards. Failures are told on standard output.
void refresh_maps_section(LogFile& file) REQUIRES(hook_mutex);
void refresh_statistics_sections(LogFile& file) REQUIRES(hook_mutex);

}  // namespace quarl
