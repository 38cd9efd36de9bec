// SPDX-License-Identifier: Apache-2.0
// Asking for a cache line ahead of its use.
#pragma once

#include <cstdint>

namespace quarl {

// Spelled out: the compiler leaves it away for plain i686, where processors before SSE take it for a no-operation.
inline void prefetch(uint32_t address) {
  __asm__ volatile("prefetcht0 %0" : : "m"(*reinterpret_cast<const char*>(address)));
}

}  // namespace quarl
