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
  // Two logs of which one is in use at a time may share image and buffer.
  constexpr Log(LogHeader& header, RecordBuffer& buffer) : header_(header), buffer_(buffer) {}

  // The layout without records. Only a failure to make the file is told: one that could not be filled is told by the
  // first write behind it.
  void create(const char* name) REQUIRES(hook_mutex);
  bool exists(const char* name) REQUIRES(hook_mutex) { return file_.exists(name); }
  void reopen(const char* name) REQUIRES(hook_mutex);
  bool is_open() REQUIRES(hook_mutex) { return file_.is_open(); }
  bool created() const REQUIRES(hook_mutex) { return file_.created(); }
  void close() REQUIRES(hook_mutex) { file_.close(); }
  void forget() REQUIRES(hook_mutex) { file_.forget(); }

  // The header as of now, without a count of records.
  void refresh_header() REQUIRES(hook_mutex);
  void refresh_maps() REQUIRES(hook_mutex);
  void refresh_statistics() REQUIRES(hook_mutex);

  // Writes the waiting records at the end of the file; the buffer is empty afterwards in any case.
  void flush() REQUIRES(hook_mutex);

  // A log that holds one snapshot: begun without records, ended with their number in the header. Records of the
  // snapshot before, and those still waiting, are gone.
  void begin_snapshot() REQUIRES(hook_mutex);
  void end_snapshot(uint32_t records) REQUIRES(hook_mutex);

  RecordBuffer& buffer() REQUIRES(hook_mutex) { return buffer_; }

 private:
  void write_header() REQUIRES(hook_mutex);

  LogFile file_;
  LogHeader& header_;
  RecordBuffer& buffer_;
};

}  // namespace quarl
