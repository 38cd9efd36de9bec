// SPDX-License-Identifier: Apache-2.0
#include "frames/code/table_jump.h"

#include <algorithm>

#include "frames/code/bits.h"

namespace quarl::frames {
namespace {

constexpr int32_t kMostCases = 4096;

constexpr size_t kLookBack = 24;
constexpr size_t kLongestJump = 12;  // bytes from the adr of a table to the jump

// The numbers of the registers that a Thumb instruction of 16 bits compares.
std::optional<std::pair<unsigned, unsigned>> compared(uint32_t half) {
  if ((half & 0xFFC0) == 0x4280) return std::pair(half & 7, half >> 3 & 7);
  if ((half & 0xFF00) == 0x4500) return std::pair((half & 7) | (half >> 4 & 8), half >> 3 & 0xF);
  return std::nullopt;
}

uint32_t cases_up_to(const Value& largest) {
  bool known = largest.kind == Value::kConstant && largest.offset >= 0 && largest.offset < kMostCases;
  return known ? static_cast<uint32_t>(largest.offset) + 1 : 0;
}

// The number of cases: one more than what the nearest cmp in front compares the register with; 0 when that is not
// known.
uint32_t thumb_cases(std::span<const uint8_t> before, unsigned index, const StackState& state) {
  for (size_t back = 2; back <= std::min(before.size(), kLookBack); back += 2) {
    CodeAt code{0, before.last(back)};
    uint32_t half = code.half(0), next = code.half(2);
    if (index < 8 && (half & 0xFF00) == (0x2800 | index << 8)) return (half & 0xFF) + 1;
    if ((half & 0xFBFF) == (0xF1B0 | index) && (next & 0x8F00) == 0x0F00) {
      return cases_up_to(constant(thumb_immediate(half, next)));
    }
    auto registers = compared(half);
    if (registers && registers->first == index) return cases_up_to(state.reg(registers->second));
  }
  return 0;
}

// tbb, tbh [pc, rm]: distances in halfwords from behind the instruction.
JumpTable thumb_table(const CodeAt& code, std::span<const uint8_t> before, const StackState& state) {
  JumpTable table;
  if (code.half(0) != 0xE8DF || (code.half(2) & 0xFFE0) != 0xF000) return table;
  uint32_t width = code.half(2) & 0x10 ? 2 : 1, cases = thumb_cases(before, code.half(2) & 0xF, state);
  table.address = code.address + 4;
  for (uint32_t at = 0; at < cases * width && 4 + at + width <= code.bytes.size(); at += width) {
    uint32_t distance = width == 2 ? code.half(4 + at) : code.bytes[4 + at];
    table.targets.push_back(table.address + distance * 2);
    table.size = at + width;
  }
  return table;
}

struct NamedTable {
  unsigned reg;  // that is given its address
  uint32_t address;
  uint32_t width;  // of the instruction
};

// adr, of one width or the other.
std::optional<NamedTable> table_named(const CodeAt& adr) {
  uint32_t half = adr.half(0), next = adr.half(2), base = (adr.address + 4) & ~3u;
  if ((half & 0xF800) == 0xA000) return NamedTable{half >> 8 & 7, base + (half & 0xFF) * 4, 2};
  if ((half & 0xFBFF) != 0xF20F || (next & 0x8000)) return std::nullopt;
  return NamedTable{next >> 8 & 0xF, base + ((half & 0x400) << 1 | (next & 0x7000) >> 4 | (next & 0xFF)), 4};
}

// The words of the table that a jump goes by: adr rd, table in front of it, and ldr rm, [rd, case, lsl #2] behind that,
// which may be the jump itself.
JumpTable words_by(const CodeAt& code, std::span<const uint8_t> before, const StackState& state, unsigned reg,
                   bool absolute) {
  JumpTable table;
  for (uint32_t back = 2; back <= std::min(before.size(), kLongestJump); back += 2) {
    std::span<const uint8_t> behind = before.last(back);
    std::optional<NamedTable> named = table_named({code.address - back, behind});
    if (!named || named->reg != reg || named->width > back || named->address <= code.address) continue;
    CodeAt load = back == named->width ? code : CodeAt{0, behind.subspan(named->width)};
    if (load.half(0) != (0xF850 | reg) || (load.half(2) & 0x0FF0) != 0x0020) continue;
    uint32_t cases = thumb_cases(before.first(before.size() - back), load.half(2) & 0xF, state);
    uint32_t first = named->address - code.address, origin = absolute ? 0 : named->address;
    for (uint32_t at = 0; at < cases * 4 && first + at + 4 <= code.bytes.size(); at += 4) {
      table.targets.push_back((origin + code.word(first + at)) & ~1u);
      table.size = at + 4;
    }
    table.address = named->address;
    break;
  }
  return table;
}

// add rd, rm; bx rd: distances in bytes from the table, with the Thumb bit. ldr pc, [rd, case, lsl #2]: addresses.
JumpTable thumb_words(const CodeAt& code, std::span<const uint8_t> before, const StackState& state) {
  uint32_t half = code.half(0);
  if ((half & 0xFF87) == 0x4700) return words_by(code, before, state, half >> 3 & 0xF, false);
  bool loads = (half & 0xFFF0) == 0xF850 && (code.half(2) & 0xFFF0) == 0xF020;
  return loads ? words_by(code, before, state, half & 0xF, true) : JumpTable{};
}

// add pc, pc, rm, lsl #2: branches from 8 bytes behind the instruction.
JumpTable arm_branches(const CodeAt& code) {
  JumpTable table;
  if ((code.word(0) & 0x0FFFFFF0) != 0x008FF100) return table;
  for (uint32_t at = 8; at < 4 * uint32_t{kMostCases} && (code.word(at) & 0xFF000000) == 0xEA000000; at += 4) {
    table.targets.push_back(code.address + at);
  }
  return table;
}

}  // namespace

JumpTable jump_table(const CodeAt& code, std::span<const uint8_t> before, bool thumb, const StackState& state) {
  if (!thumb) return arm_branches(code);
  JumpTable table = thumb_table(code, before, state);
  return table.targets.empty() ? thumb_words(code, before, state) : table;
}

}  // namespace quarl::frames
