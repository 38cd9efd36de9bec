// SPDX-License-Identifier: Apache-2.0
// Which i386 opcodes have a ModRM byte and an immediate operand.
#pragma once

#include "frames/code/i386_layout.h"

namespace quarl::frames {

bool one_byte_has_modrm(uint8_t opcode);
bool two_byte_has_modrm(uint8_t op);
// Bytes of immediate operands; more than 4 for a pointer with its segment.
unsigned one_byte_immediate(const I386Instruction& in, bool address16);
unsigned two_byte_immediate(const I386Instruction& in);

}  // namespace quarl::frames
