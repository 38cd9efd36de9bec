// SPDX-License-Identifier: Apache-2.0
#include "frames/code/i386_opcodes.h"

namespace quarl::frames {

bool one_byte_has_modrm(uint8_t opcode) {
  if (opcode < 0x40) return (opcode & 7) < 4;
  if (opcode >= 0x80 && opcode <= 0x8F) return true;
  if (opcode >= 0xD8 && opcode <= 0xDF) return true;
  switch (opcode) {
    case 0x62:
    case 0x63:
    case 0x69:
    case 0x6B:
    case 0xC0:
    case 0xC1:
    case 0xC4:
    case 0xC5:
    case 0xC6:
    case 0xC7:
    case 0xD0:
    case 0xD1:
    case 0xD2:
    case 0xD3:
    case 0xF6:
    case 0xF7:
    case 0xFE:
    case 0xFF:
      return true;
    default:
      return false;
  }
}

unsigned one_byte_immediate(const I386Instruction& in, bool address16) {
  uint8_t op = in.opcode;
  unsigned full = in.word ? 2 : 4;
  if (op < 0x40) return (op & 7) == 4 ? 1 : (op & 7) == 5 ? full : 0;
  if (op >= 0x70 && op <= 0x7F) return 1;
  if (op >= 0xB0 && op <= 0xB7) return 1;
  if (op >= 0xB8 && op <= 0xBF) return full;
  if (op >= 0xA0 && op <= 0xA3) return address16 ? 2 : 4;
  if (op >= 0xE0 && op <= 0xE7) return 1;
  switch (op) {
    case 0x6A:
    case 0x6B:
    case 0x80:
    case 0x82:
    case 0x83:
    case 0xA8:
    case 0xC0:
    case 0xC1:
    case 0xC6:
    case 0xCD:
    case 0xD4:
    case 0xD5:
    case 0xEB:
      return 1;
    case 0x68:
    case 0x69:
    case 0x81:
    case 0xA9:
    case 0xC7:
    case 0xE8:
    case 0xE9:
      return full;
    case 0xC2:
    case 0xCA:
      return 2;
    case 0xC8:
      return 3;
    case 0x9A:
    case 0xEA:
      return full + 2;
    case 0xF6:
      return in.reg < 2 ? 1 : 0;
    case 0xF7:
      return in.reg < 2 ? full : 0;
    default:
      return 0;
  }
}

bool two_byte_has_modrm(uint8_t op) {
  if (op >= 0x80 && op <= 0x8F) return false;
  if (op >= 0xC8 && op <= 0xCF) return false;
  if (op >= 0x30 && op <= 0x37) return false;
  switch (op) {
    case 0x05:
    case 0x06:
    case 0x07:
    case 0x08:
    case 0x09:
    case 0x0B:
    case 0x0E:
    case 0x77:
    case 0xA0:
    case 0xA1:
    case 0xA2:
    case 0xA8:
    case 0xA9:
    case 0xAA:
      return false;
    default:
      return true;
  }
}

unsigned two_byte_immediate(const I386Instruction& in) {
  uint8_t op = in.opcode;
  if (op >= 0x80 && op <= 0x8F) return in.word ? 2 : 4;
  switch (op) {
    case 0x0F:
    case 0x70:
    case 0x71:
    case 0x72:
    case 0x73:
    case 0xA4:
    case 0xAC:
    case 0xBA:
    case 0xC2:
    case 0xC4:
    case 0xC5:
    case 0xC6:
      return 1;
    default:
      return 0;
  }
}

}  // namespace quarl::frames
