// SPDX-License-Identifier: Apache-2.0
// The checker's own memory, never seen by a hook.
#pragma once

#include "platform/address.h"
#include "platform/thread_cache.h"
#include "state/raw_calls.h"

namespace quarl {

inline void* own_memory(size_t size) {
  const InsideChecker inside;
  return raw::allocate(size);
}

inline void release_own_memory(void* memory) {
  const InsideChecker inside;
  raw::release(memory);
}

// Private anonymous memory, zero; MAP_FAILED when there is none.
inline void* map_own(size_t size) {
  const InsideChecker inside;
  return raw::map(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

inline void unmap_own(void* memory, size_t size) {
  const InsideChecker inside;
  raw::unmap(memory, size);
}

// Memory between two pages that nobody may touch: where the application overruns a mapping beside it, it is stopped
// there. What begins at `memory` is private, anonymous, zero. None of it touches a range that is about to become the
// application's; when it is given back, what lies in that range is left, for the application's mapping takes its place.
void* map_guarded(size_t size, const AddressRange& avoided);
void unmap_guarded(void* memory, size_t size, const AddressRange& left);

// The memory with those pages.
AddressRange guarded_range(const void* memory, size_t size);

}  // namespace quarl
