// SPDX-License-Identifier: Apache-2.0
// How long an i386 instruction is and where its parts lie.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace quarl::frames {

// What a ModRM byte names: a register, or memory at base + index * scale + displacement.
struct Operand {
  bool memory = false;
  unsigned reg = 0;  // when it is no memory
  std::optional<unsigned> base, index;
  int32_t displacement = 0;
};

struct I386Instruction {
  uint8_t size = 0;  // 0: none
  uint8_t map = 0;   // 0: one byte, 1: behind 0F, 2: 0F 38, 3: 0F 3A; 4: VEX or EVEX
  uint8_t opcode = 0;
  bool word = false;      // operands of 16 bits
  bool repeated = false;  // prefix F2 or F3
  bool segment = false;
  bool modrm = false;
  unsigned reg = 0;  // of the ModRM byte, or the extension of the opcode
  Operand operand;
  int32_t immediate = 0;  // sign-extended
};

I386Instruction decode_i386(std::span<const uint8_t> bytes);

}  // namespace quarl::frames
