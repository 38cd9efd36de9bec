// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/hooks/mapping_resize.h"

#include "logs/mappings/mapping_records.h"
#include "platform/address.h"
#include "platform/system.h"

namespace quarl {

void note_resized_mapping(void* base, size_t old_size, size_t size) {
  const KeepErrno keep;
  const InsideChecker inside;
  const ScopedLock lock;
  TraceInfoEntry* entry = find_mapping(address_of(base), old_size);
  if (entry != nullptr) resize_mapping_entry(entry, size);
}

}  // namespace quarl
