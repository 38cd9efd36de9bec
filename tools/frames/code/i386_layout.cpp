// SPDX-License-Identifier: Apache-2.0
#include "frames/code/i386_layout.h"

#include <algorithm>

#include "frames/code/i386_opcodes.h"

namespace quarl::frames {
namespace {

constexpr size_t kLongest = 15;

class Reader {
 public:
  explicit Reader(std::span<const uint8_t> bytes) : bytes_(bytes.first(std::min(bytes.size(), kLongest))) {}
  uint8_t peek(size_t ahead = 0) const { return at_ + ahead < bytes_.size() ? bytes_[at_ + ahead] : 0; }
  uint8_t byte() { return number(1) & 0xFF; }
  bool good() const { return at_ <= bytes_.size(); }
  uint8_t at() const { return static_cast<uint8_t>(at_); }

  // `size` bytes, sign-extended.
  int32_t number(unsigned size) {
    uint32_t value = 0;
    for (unsigned index = 0; index < size; ++index) value |= static_cast<uint32_t>(peek(index)) << (8 * index);
    at_ += size;
    return size == 1   ? static_cast<int8_t>(value)
           : size == 2 ? static_cast<int16_t>(value)
                       : static_cast<int32_t>(value);
  }

 private:
  std::span<const uint8_t> bytes_;
  size_t at_ = 0;
};

bool prefix(Reader& in, I386Instruction& instruction, bool& address16) {
  switch (in.peek()) {
    case 0x66:
      instruction.word = true;
      break;
    case 0x67:
      address16 = true;
      break;
    case 0xF2:
    case 0xF3:
      instruction.repeated = true;
      break;
    case 0x26:
    case 0x2E:
    case 0x36:
    case 0x3E:
    case 0x64:
    case 0x65:
      instruction.segment = true;
      break;
    case 0xF0:
      break;
    default:
      return false;
  }
  in.byte();
  return true;
}

void modrm(Reader& in, I386Instruction& instruction, bool address16) {
  uint8_t byte = in.byte();
  unsigned mode = byte >> 6, low = byte & 7;
  instruction.modrm = true;
  instruction.reg = byte >> 3 & 7;
  Operand& operand = instruction.operand;
  operand.memory = mode != 3;
  if (mode == 3) {
    operand.reg = low;
  } else if (address16) {
    in.number(mode == 2 || (mode == 0 && low == 6) ? 2 : mode);
  } else {
    operand.base = low;
    if (low == 4) {
      uint8_t scaled = in.byte();
      operand.base = scaled & 7;
      if ((scaled >> 3 & 7) != 4) operand.index = scaled >> 3 & 7;
    }
    if (mode == 0 && *operand.base == 5) {
      operand.base.reset();
      mode = 2;
    }
    if (mode != 0) operand.displacement = in.number(mode == 1 ? 1 : 4);
  }
}

bool is_vex(const Reader& in) {
  uint8_t first = in.peek();
  return (first == 0xC4 || first == 0xC5 || first == 0x62) && in.peek(1) >= 0xC0;
}

// Vector instructions of the later encodings: they change no register that leads to the frame.
void vector_instruction(Reader& in, I386Instruction& instruction, bool address16) {
  uint8_t first = in.byte(), map = 1;
  if (first != 0xC5) map = in.byte() & (first == 0xC4 ? 0x1F : 7);
  in.number(first == 0x62 ? 2 : 1);
  instruction.map = 4;
  instruction.opcode = in.byte();
  bool alone = map == 1 && instruction.opcode == 0x77;
  if (!alone) modrm(in, instruction, address16);
  I386Instruction as_old = instruction;
  as_old.word = false;
  if (map == 3 || (map == 1 && two_byte_immediate(as_old) == 1)) in.byte();
}

}  // namespace

I386Instruction decode_i386(std::span<const uint8_t> bytes) {
  I386Instruction instruction;
  Reader in(bytes);
  bool address16 = false;
  while (in.at() < kLongest && prefix(in, instruction, address16)) {
  }
  unsigned immediate = 0;
  if (is_vex(in)) {
    vector_instruction(in, instruction, address16);
  } else if ((instruction.opcode = in.byte()) != 0x0F) {
    if (one_byte_has_modrm(instruction.opcode)) modrm(in, instruction, address16);
    immediate = one_byte_immediate(instruction, address16);
  } else {
    instruction.map = 1;
    instruction.opcode = in.byte();
    if (instruction.opcode == 0x38 || instruction.opcode == 0x3A) {
      instruction.map = instruction.opcode == 0x38 ? 2 : 3;
      instruction.opcode = in.byte();
      modrm(in, instruction, address16);
      immediate = instruction.map == 3 ? 1 : 0;
    } else {
      if (two_byte_has_modrm(instruction.opcode)) modrm(in, instruction, address16);
      immediate = two_byte_immediate(instruction);
    }
  }
  if (immediate <= 4) {
    instruction.immediate = in.number(immediate);
  } else {
    in.number(4);
    in.number(immediate - 4);
  }
  instruction.size = in.good() ? in.at() : 0;
  return instruction;
}

}  // namespace quarl::frames
