// SPDX-License-Identifier: Apache-2.0
// Fields of instruction words.
#pragma once

#include <bit>
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

// The immediate operand of a Thumb instruction of 32 bits that processes data: a byte repeated, or one moved.
inline int32_t thumb_immediate(uint32_t first, uint32_t second) {
  uint32_t byte = second & 0xFF, coded = bit(first, 10) << 4 | bits(second, 14, 12) << 1 | byte >> 7;
  switch (coded >> 1) {
    case 0:
      return static_cast<int32_t>(byte);
    case 1:
      return static_cast<int32_t>(byte | byte << 16);
    case 2:
      return static_cast<int32_t>(byte << 8 | byte << 24);
    case 3:
      return static_cast<int32_t>(byte * 0x01010101u);
    default:
      return static_cast<int32_t>(std::rotr(byte | 0x80, static_cast<int>(coded)));
  }
}

}  // namespace quarl::frames
