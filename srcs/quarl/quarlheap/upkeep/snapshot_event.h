// SPDX-License-Identifier: Apache-2.0
// A snapshot that was written, as events tell it.
#pragma once

#include "platform/resident_memory.h"
#include "state/events/event.h"

namespace quarl {

// What a snapshot holds: the blocks up to a damaged one that ends it, and the mappings.
struct LiveMemory {
  uint32_t blocks = 0;
  uint64_t bytes = 0;  // of blocks
  uint32_t mappings = 0;

  void add_block(uint32_t size) {
    ++blocks;
    bytes += size;
  }
};

// `live`: null for a snapshot without rows.
inline void tell_snapshot(const char* kind, const char* path, const LiveMemory* live) {
  const uint64_t resident = events_wanted() ? resident_bytes() : 0;
  const Event event("snapshot");
  if (!event) return;
  event.line().text("kind", kind);
  if (live != nullptr) {
    event.line().number("blocks", live->blocks).number("bytes", live->bytes).number("mappings", live->mappings);
  }
  if (resident != 0) event.line().number("resident", resident);
  event.line().text("path", path);
}

}  // namespace quarl
