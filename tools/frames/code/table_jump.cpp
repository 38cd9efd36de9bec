#include "frames/code/table_jump.h"

#include <algorithm>

namespace quarl::frames {
namespace {

constexpr uint32_t kMostCases = 4096;

// tbb, tbh [pc, rm]: distances in halfwords from behind the instruction. The table ends where its first case begins.
JumpTable thumb_table(const CodeAt& code) {
  JumpTable table;
  if (code.half(0) != 0xE8DF || (code.half(2) & 0xFFE0) != 0xF000) return table;
  uint32_t width = code.half(2) & 0x10 ? 2 : 1;
  table.address = code.address + 4;
  uint32_t end = UINT32_MAX;
  for (uint32_t at = 0; at < kMostCases * width && table.address + at < end && 4 + at + width <= code.bytes.size();
       at += width) {
    uint32_t distance = width == 2 ? code.half(4 + at) : code.bytes[4 + at];
    if (distance * 2 < at + width) break;
    table.targets.push_back(table.address + distance * 2);
    end = std::min(end, table.targets.back());
    table.size = at + width;
  }
  return table;
}

// add pc, pc, rm, lsl #2: branches from 8 bytes behind the instruction.
JumpTable arm_branches(const CodeAt& code) {
  JumpTable table;
  if ((code.word(0) & 0x0FFFFFF0) != 0x008FF100) return table;
  for (uint32_t at = 8; at < 4 * kMostCases && (code.word(at) & 0xFF000000) == 0xEA000000; at += 4) {
    table.targets.push_back(code.address + at);
  }
  return table;
}

}  // namespace

JumpTable jump_table(const CodeAt& code, bool thumb) {
  return thumb ? thumb_table(code) : arm_branches(code);
}

}  // namespace quarl::frames
