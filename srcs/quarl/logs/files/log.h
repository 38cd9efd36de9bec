// SPDX-License-Identifier: Apache-2.0
// A log: a file that begins with a header and sections and ends with records, the header's image in memory, and the
// buffer in which its records wait. All that happens to the bytes of a record log or a snapshot log happens here.
#pragma once

#include "logs/files/log_file.h"
#include "logs/files/record_buffer.h"
#include "logs/format.h"
#include "state/hook_lock.h"

namespace quarl {

class Log {
 public:
  // Two logs of which one is in use at a time may share image and buffer. `kind`: what events call it.
  constexpr Log(const char* kind, LogHeader& header, RecordBuffer& buffer)
      : kind_(kind), header_(header), buffer_(buffer) {}

  // The layout without records. Only a failure to make the file is told: one that had no room for the layout is told by
  // the first write behind it.
  void create(const char* name) REQUIRES(hook_mutex);

  // Open, and with its layout. A log that was begun on a full disk is begun anew here; that there is still no room is
  // told.
  bool ready() REQUIRES(hook_mutex);

  bool exists(const char* name) REQUIRES(hook_mutex) { return file_.exists(name); }
  void reopen(const char* name) REQUIRES(hook_mutex);
  bool is_open() REQUIRES(hook_mutex) { return file_.is_open(); }
  bool created() const REQUIRES(hook_mutex) { return file_.created(); }
  const char* path() const REQUIRES(hook_mutex) { return file_.path(); }
  void close() REQUIRES(hook_mutex) { file_.close(); }
  void remove() REQUIRES(hook_mutex) { file_.remove(); }
  void forget() REQUIRES(hook_mutex);

  // The header as of now, without a count of records.
  void refresh_header() REQUIRES(hook_mutex);
  void refresh_maps() REQUIRES(hook_mutex);
  void refresh_statistics() REQUIRES(hook_mutex);

  // Writes the waiting records at the end of the file; the buffer is empty afterwards in any case.
  void flush() REQUIRES(hook_mutex);

  // A log that holds one snapshot: begun without records, ended with their number in the header. Records of the
  // snapshot before, and those still waiting, are gone. Of the records, `own` are not what a forked child found there.
  void begin_snapshot() REQUIRES(hook_mutex);
  void end_snapshot(uint32_t records, uint32_t own) REQUIRES(hook_mutex);

  // A fault or a record of an operation was to be written: whoever looks for findings wants this log.
  void note_finding() REQUIRES(hook_mutex) { findings_ = true; }
  // No finding, and nothing of its own in the last snapshot.
  bool says_nothing() const REQUIRES(hook_mutex) { return !findings_ && !holds_unfreed_; }

  RecordBuffer& buffer() REQUIRES(hook_mutex) { return buffer_; }

 private:
  FileResult lay_out() REQUIRES(hook_mutex);
  bool has_layout() REQUIRES(hook_mutex);  // of an open one
  void write_header() REQUIRES(hook_mutex);

  const char* const kind_;
  LogFile file_;
  bool laid_out_ = true;  // false: the disk had no room for the layout, and the file is empty
  bool findings_ = false;
  bool holds_unfreed_ = false;
  LogHeader& header_;
  RecordBuffer& buffer_;
};

}  // namespace quarl
