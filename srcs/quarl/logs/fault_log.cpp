#include "logs/fault_log.h"

#include "logs/log_files.h"
#include "logs/record_buffer.h"

namespace quarl {
namespace {

void append_and_flush(const OpRecord& record, void (*flush)()) REQUIRES(hook_mutex) {
  if (primary_buffer.full()) flush();
  if (primary_buffer.full()) return;
  *primary_buffer.take_slot() = record;
  flush();
}

}  // namespace

void log_fault(const OpRecord& record) {
  const Flags flags;
  open_child_logs();
  if (flags.record_log() && record_log.is_open()) {
    append_and_flush(record, flush_to_record_log);
  } else if (flags.header() && snapshot_log.is_open()) {
    append_and_flush(record, flush_to_snapshot_log);
  }
}

}  // namespace quarl
