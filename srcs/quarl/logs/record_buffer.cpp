#include "logs/record_buffer.h"

#include <errno.h>

#include "logs/log_files.h"
#include "platform/print.h"
#include "platform/system.h"
#include "quarlheap/raw/own_memory.h"

namespace quarl {

constinit RecordBuffer primary_buffer{};
constinit RecordBuffer autosnap_buffer{};

namespace {

constexpr uint32_t kMaxRecords = 32767;

bool append_records(LogFile& file, const RecordBuffer& buffer) {
  if (file.is_open()) return file.append(buffer.records, sizeof(OpRecord), static_cast<size_t>(buffer.count));
  errno = EBADF;
  return false;
}

}  // namespace

void RecordBuffer::allocate() {
  const uint32_t wanted = trace_buf_size / sizeof(OpRecord);
  const uint32_t records_held = wanted < kMaxRecords ? wanted : kMaxRecords;
  records = static_cast<OpRecord*>(own_memory(records_held * sizeof(OpRecord)));
  capacity = records != nullptr ? static_cast<int16_t>(records_held) : int16_t{0};
  count = 0;
  if (records == nullptr) print(kStderr, "No memory to buf.\n");
}

void flush_to_record_log() {
  const KeepErrno keep;
  open_child_logs();
  if (primary_buffer.count > 0 && !append_records(record_log, primary_buffer)) print_write_failure();
  primary_buffer.count = 0;
}

void flush_to_snapshot_log() {
  const KeepErrno keep;
  if (primary_buffer.count > 0 && !append_records(snapshot_log, primary_buffer)) print_write_failure();
  primary_buffer.count = 0;
}

void stop_recording() {
  primary_buffer.capacity = 0;
  primary_buffer.count = 0;
}

}  // namespace quarl
