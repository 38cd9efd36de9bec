// SPDX-License-Identifier: Apache-2.0
// Asking for a cache line ahead of its use.
#pragma once

#include <cstdint>

namespace quarl {

inline void prefetch(uint32_t address) {
  // Not the built-in: a function that does nothing else has no effect that the compiler knows, and its calls go.
  __asm__ volatile("pld %a0" : : "p"(address));
}

}  // namespace quarl
