// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/operation_record.h"

namespace quarl {
void record_failure(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace) {
  OpRecord* record = detail::begin_record(kKindFailed, size, 0, trace);
  if (record == nullptr) return;
  detail::fill_from_call(flags, op, record);
  record_filled();
}

}  // namespace quarl
