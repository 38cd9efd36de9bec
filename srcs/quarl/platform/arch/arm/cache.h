// Asking for a cache line ahead of its use.
#pragma once

#include <cstdint>

namespace quarl {

inline void prefetch(uint32_t address) {
  __builtin_prefetch(reinterpret_cast<const void*>(address), 1);
}

}  // namespace quarl
