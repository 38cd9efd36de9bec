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

// The same two where a range is about to become the application's: memory that does not touch it, and memory of which
// what lies in it is left, for the application's mapping takes its place.
void* map_own_outside(size_t size, const AddressRange& range);
void unmap_own_outside(void* memory, size_t size, const AddressRange& range);

}  // namespace quarl
