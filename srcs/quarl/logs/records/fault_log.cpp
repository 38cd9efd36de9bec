// SPDX-License-Identifier: Apache-2.0
#include "logs/records/fault_log.h"

#include "logs/files/log_files.h"

namespace quarl {

void log_fault(const OpRecord& record) {
  open_child_logs();
  Log* log = open_log(Flags());
  if (log == nullptr) return;
  log->note_finding();
  RecordBuffer& buffer = log->buffer();
  if (buffer.full()) log->flush();
  if (buffer.full()) return;
  *buffer.take_slot() = record;
  log->flush();
}

}  // namespace quarl
