// SPDX-License-Identifier: Apache-2.0
// Instructions whose opcode follows 0F.
#include "frames/code/i386_execution.h"

namespace quarl::frames {

void I386Execution::two_byte() {
  uint8_t op = in_.opcode;
  if (op >= 0x80 && op < 0x90) return jump(Flow::kBranch);
  if (op >= 0x90 && op < 0xA0) return forget_operand(1);
  if ((op >= 0x40 && op < 0x50) || (op >= 0xC8 && op < 0xD0)) return state_.forget(op < 0x50 ? in_.reg : op & 7);
  switch (op) {
    case 0x0B:
    case 0xB9:
    case 0xFF:
      result_.flow = Flow::kStop;
      return;
    case 0x34:
      result_.flow = Flow::kSystemCall;
      return;  // sysenter
    case 0x31:
    case 0xA2:
    case 0x01:
      for (unsigned n : {0, 1, 2, 3}) state_.forget(n);
      return;
    case 0x2C:
    case 0x2D:
    case 0x50:
    case 0xD7:
    case 0xC5:
    case 0xAF:
    case 0xB6:
    case 0xB7:
    case 0xBC:
    case 0xBD:
    case 0xBE:
    case 0xBF:
    case 0xB8:
    case 0x02:
    case 0x03:
      state_.forget(in_.reg);
      return;
    case 0x7E:
    case 0xA4:
    case 0xA5:
    case 0xAB:
    case 0xAC:
    case 0xAD:
    case 0xB3:
    case 0xBB:
    case 0xBA:
      return forget_operand(4);
    case 0xB0:
    case 0xB1:
      state_.forget(kEax);
      return forget_operand(size());
    case 0xC0:
    case 0xC1:
      forget_reg(size());
      return forget_operand(size());
    case 0xC7:
      state_.forget(kEax);
      state_.forget(kEdx);
      return forget_operand(4);
    case 0xA0:
    case 0xA8:
      return state_.push({});
    case 0xA1:
    case 0xA9:
      return static_cast<void>(state_.pop());
    default:
      return;
  }
}

}  // namespace quarl::frames
