// Fields of instruction words.
#pragma once

#include <cstdint>

namespace quarl::frames {

// Bits `high` to `low`, both included.
inline uint32_t bits(uint32_t word, unsigned high, unsigned low) {
  return word >> low & ((2u << (high - low)) - 1);
}

inline bool bit(uint32_t word, unsigned number) {
  return word >> number & 1;
}

inline int32_t sign_extended(uint32_t value, unsigned width) {
  return static_cast<int32_t>(value << (32 - width)) >> (32 - width);
}

}  // namespace quarl::frames
