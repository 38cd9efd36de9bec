// SPDX-License-Identifier: Apache-2.0
// operator new goes into the allocator at once; operator delete calls the public free, whose ever it is.
#include <cstdlib>
#include <new>

#include "own.h"

EXPORT void* operator new(std::size_t size) {
  return own_allocate(size);
}
EXPORT void operator delete(void* block) noexcept {
  free(block);
}
EXPORT void operator delete(void* block, std::size_t) noexcept {
  free(block);
}
