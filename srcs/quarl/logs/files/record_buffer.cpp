// SPDX-License-Identifier: Apache-2.0
#include "logs/files/record_buffer.h"

#include <string.h>

#include "platform/print.h"
#include "state/own_memory.h"

namespace quarl {
namespace {

constexpr uint32_t kMaxCount = 32767;

}  // namespace

void RecordBuffer::allocate(uint32_t bytes) {
  const uint32_t wanted = bytes / sizeof(OpRecord);
  const uint32_t held = wanted < kMaxCount ? wanted : kMaxCount;
  records = static_cast<OpRecord*>(own_memory(held * sizeof(OpRecord)));
  capacity = records != nullptr ? static_cast<int16_t>(held) : int16_t{0};
  count = cleared = 0;
  if (records == nullptr) print_failure(kStderr, {"memory"}, "No memory to buf.\n");
}

void RecordBuffer::clear_slot() {
  memset(&records[cleared++], 0, sizeof(OpRecord));
}

}  // namespace quarl
