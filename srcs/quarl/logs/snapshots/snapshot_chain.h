// SPDX-License-Identifier: Apache-2.0
// The automatic-snapshot log: a chain of snapshots, each a whole log of its own, appended one after the other.
#pragma once

#include "logs/files/log_file.h"
#include "logs/files/record_buffer.h"
#include "logs/format.h"
#include "state/hook_lock.h"

namespace quarl {

class SnapshotChain {
 public:
  // Once, after configuration; build_header again in a forked child.
  void set_up() REQUIRES(hook_mutex);
  void build_header() REQUIRES(hook_mutex);

  // Begins a snapshot of this number behind the others; the log is created when it is not open. False, with a message
  // on standard output, when that fails. The snapshot joins the chain when it ends; one for which there was no room
  // then is cut off again, and the chain lacks its number.
  bool begin(int number) REQUIRES(hook_mutex);
  void end() REQUIRES(hook_mutex);
  bool ended_whole() const REQUIRES(hook_mutex) { return complete_; }  // it is in the chain
  const char* path() const REQUIRES(hook_mutex) { return file_.path(); }

  // Rows for the snapshot just begun: none can be written without memory for a buffer.
  bool begin_rows() REQUIRES(hook_mutex);
  OpRecord* next_row() REQUIRES(hook_mutex);
  void end_rows(uint32_t records) REQUIRES(hook_mutex);

  void close() REQUIRES(hook_mutex) { file_.close(); }
  void forget() REQUIRES(hook_mutex);  // in a forked child: its log is another file

 private:
  static constexpr int64_t kNone = -1;

  bool ensure_open() REQUIRES(hook_mutex);
  FileResult find_place() REQUIRES(hook_mutex);
  FileResult write_sections(int number) REQUIRES(hook_mutex);
  FileResult link_to(int64_t snapshot) REQUIRES(hook_mutex);
  void write_rows() REQUIRES(hook_mutex);

  LogFile file_;
  LogHeader header_{};
  RecordBuffer buffer_{};
  int64_t present_ = 0;    // file offset of the snapshot that is being written
  int64_t last_ = kNone;   // of the last one of the chain
  int64_t rows_end_ = 0;   // where the next rows go
  bool complete_ = false;  // all of the present one is in the file so far
};

extern SnapshotChain snapshot_chain GUARDED_BY(hook_mutex);

}  // namespace quarl
