// SPDX-License-Identifier: Apache-2.0
// The sections of a log before its records: maps, statistics, threads, at the places that a header names.
#pragma once

#include "logs/files/log_file.h"
#include "logs/format.h"
#include "state/hook_lock.h"
#include "state/settings.h"

namespace quarl {

inline uint64_t maps_section_size() {
  return static_cast<uint64_t>(settings.maps_size_kb) * 1024;
}

// The sections of a log, or of a snapshot in one, that begins at `start` lie where their offsets can say.
bool layout_fits(int64_t start);

// A header that says whose log it is, and nothing of where its sections lie.
LogHeader identity_header();

// Sets the offsets in the header of a log, or of a snapshot in one, that begins at `start` and fits.
void lay_out_from(int64_t start, LogHeader* header);

// A header at the file's end, and its sections: maps full of zeros, statistics, and threads when they are wanted, with
// zeros in place of what does not exist. Ends at the first failure.
FileResult append_sections(LogFile& file, const LogHeader& header, bool threads) REQUIRES(hook_mutex);

// Writes the maps of this moment into their section, which is full of zeros. Failures are told on standard output.
void fill_maps_section(LogFile& file, const LogHeader& header) REQUIRES(hook_mutex);

// The same over a text from before.
void refresh_maps_section(LogFile& file, const LogHeader& header) REQUIRES(hook_mutex);

// The statistics of this moment, as far as they are kept. Failures are told on standard output.
void refresh_statistics_sections(LogFile& file, const LogHeader& header) REQUIRES(hook_mutex);

}  // namespace quarl
