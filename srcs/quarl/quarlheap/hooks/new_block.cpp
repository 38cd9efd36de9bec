// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/hooks/new_block.h"

namespace quarl {

void* bare_block(void* raw) {
  keep_bare_block(raw);
  return raw;
}

void count_failure(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace) {
  if (!flags.prof() && !flags.record_log()) return;
  const ScopedLock lock;
  counters_for(flags).failed(op);
  if (flags.record_log()) record_failure(flags, op, size, trace);
}

}  // namespace quarl
