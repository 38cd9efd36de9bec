// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/call_check.h"

namespace quarl::report {
namespace {

// How many bytes "call r/m32" takes, opcode FF, by the byte behind it and the scale-index byte behind that; 0 when it
// is another instruction.
size_t indirect_call_size(uint8_t modrm, uint8_t sib) {
  if ((modrm >> 3 & 7) != 2) return 0;
  const int mode = modrm >> 6, base = modrm & 7;
  if (mode == 3) return 2;
  const size_t scaled = base == 4 ? 1 : 0;
  if (mode == 1) return 3 + scaled;
  if (mode == 2) return 6 + scaled;
  const bool absolute = base == 5 || (scaled != 0 && (sib & 7) == 5);
  return 2 + scaled + (absolute ? 4 : 0);
}

bool ends_with_i386_call(std::span<const uint8_t> code) {
  const size_t end = code.size();
  if (code[end - 5] == 0xE8) return true;
  for (size_t size : {2, 3, 4, 6, 7}) {
    const uint8_t* at = &code[end - size];
    if (at[0] == 0xFF && indirect_call_size(at[1], size > 2 ? at[2] : 0) == size) return true;
  }
  return false;
}

uint32_t word_before(std::span<const uint8_t> code, size_t back) {
  const uint8_t* at = &code[code.size() - back];
  return at[0] | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24;
}

// bl, blx; and what the oldest processors had for the latter: lr is set by one instruction, pc by the next.
bool ends_with_arm_call(std::span<const uint8_t> code) {
  const uint32_t last = word_before(code, 4);
  const bool branch_and_link = (last & 0x0F000000) == 0x0B000000 || (last & 0xFE000000) == 0xFA000000;
  const bool to_register = (last & 0x0FFFFFF0) == 0x012FFF30;
  if (branch_and_link || to_register) return true;
  const uint32_t before = word_before(code, 8);
  const bool sets_lr = (before & 0x0FFFFFFF) == 0x01A0E00F || (before & 0x0FFFF000) == 0x028FE000;
  const bool sets_pc = (last & 0x0FFFFFF0) == 0x012FFF10 || (last & 0x0FFFFFF0) == 0x01A0F000 ||
                       (last & 0x0C10F000) == 0x0410F000 || (last & 0x0F000000) == 0x0A000000;
  return sets_lr && sets_pc;
}

bool ends_with_thumb_call(std::span<const uint8_t> code) {
  const uint32_t last = word_before(code, 4);
  const uint32_t first_half = last & 0xFFFF, second_half = last >> 16;
  const bool to_register = (second_half & 0xFF87) == 0x4780;
  return to_register || ((first_half & 0xF800) == 0xF000 && (second_half & 0xC000) == 0xC000);
}

}  // namespace

bool ends_with_call(std::span<const uint8_t> code, Instructions instructions) {
  if (code.size() < kLongestCall) return true;
  switch (instructions) {
    case Instructions::kI386:
      return ends_with_i386_call(code);
    case Instructions::kArm:
      return ends_with_arm_call(code);
    case Instructions::kThumb:
      return ends_with_thumb_call(code);
  }
  return true;
}

}  // namespace quarl::report
