// SPDX-License-Identifier: Apache-2.0
// What of a block can be told: of a damaged or released one, that for which something beside its header speaks.
#pragma once

#include "quarlheap/model/block_row.h"
#include "state/events/event.h"
#include "state/hook_lock.h"

namespace quarl {

struct KnownBlock {
  OpRecord row;          // as the header says
  bool sized = false;    // its size can be told
  bool made = false;     // who made it, and from where
  uint8_t lost = 0;      // innermost entries of its trace that the allocator has overwritten
  bool damaged = false;  // live, and the header says something else than the chunk

  uint32_t size() const { return sized ? row.size : 0; }
};

// Of a block that is on the list. Reads only where blocks are.
void know_live(DoubtfulBlock block, KnownBlock* known) REQUIRES(hook_mutex);

// Of one that was released, or moved away from: its header is there until somebody gets the memory, but for the words
// that the allocator keeps in released memory. Nothing is known when the rest of it does not fit together.
void know_released(DoubtfulBlock block, KnownBlock* known) REQUIRES(hook_mutex);

// The keys of a block of events (docs/events.md), into the object that is open.
void put_known(const Event& event, Address p, const KnownBlock& known);

}  // namespace quarl
