// SPDX-License-Identifier: Apache-2.0
// Instructions whose opcode is one byte.
#include "frames/code/i386_execution.h"

namespace quarl::frames {

void I386Execution::one_byte() {
  uint8_t op = in_.opcode;
  if (op == 0x06 || op == 0x0E || op == 0x16 || op == 0x1E) return state_.push({});
  if (op == 0x07 || op == 0x17 || op == 0x1F) return static_cast<void>(state_.pop());
  if (op < 0x40) return arithmetic();
  if (op < 0x50) return state_.set(op & 7, state_.reg(op & 7).plus(op < 0x48 ? 1 : -1));
  if (op < 0x58) return state_.push(state_.reg(op & 7));
  if (op < 0x60) {
    Value value = state_.pop();
    return state_.set(op & 7, value);
  }
  if (op >= 0x70 && op < 0x80) return jump(Flow::kBranch);
  if (op >= 0xB0 && op < 0xB8) return state_.forget(op & 3);
  if (op >= 0xB8 && op < 0xC0) return state_.set(op & 7, constant(in_.immediate));
  if (op > 0x90 && op < 0x98) {
    Value value = state_.reg(op & 7);
    state_.set(op & 7, state_.reg(kEax));
    return state_.set(kEax, value);
  }
  if (op >= 0xE0 && op < 0xE4) return jump(Flow::kBranch);
  switch (op) {
    case 0x60:
      move_stack(-32);
      return;
    case 0x61:
      move_stack(32);
      for (unsigned n : {0, 1, 2, 3, 5, 6, 7}) state_.forget(n);
      return;
    case 0x68:
    case 0x6A:
      state_.push(constant(in_.immediate));
      return;
    case 0x69:
    case 0x6B:
      state_.forget(in_.reg);
      return;
    case 0x80:
    case 0x81:
    case 0x82:
    case 0x83:
      return arithmetic_immediate();
    case 0x84:
    case 0x85:
    case 0x90:
    case 0x8C:
    case 0xA8:
    case 0xA9:
      return;
    case 0x86:
      forget_reg(1);
      return forget_operand(1);
    case 0x87:
      forget_reg(4);
      return forget_operand(4);
    case 0x88:
    case 0x89:
    case 0x8A:
    case 0x8B:
    case 0x8D:
    case 0x8E:
    case 0x8F:
    case 0xC6:
    case 0xC7:
      return moves();
    case 0x98:
    case 0x9F:
    case 0xA0:
    case 0xA1:
    case 0xAC:
    case 0xAD:
    case 0xD4:
    case 0xD5:
    case 0xD6:
    case 0xD7:
    case 0xE4:
    case 0xE5:
    case 0xEC:
    case 0xED:
    case 0x27:
    case 0x2F:
      state_.forget(kEax);
      return;
    case 0x99:
      state_.forget(kEdx);
      return;
    case 0x9A:
    case 0xEA:
    case 0xCA:
    case 0xCB:
    case 0xCF:
    case 0xF4:
    case 0xCC:
    case 0xC8:
      result_.flow = Flow::kStop;
      return;
    case 0x9C:
      state_.push({});
      return;
    case 0x9D:
      move_stack(4);
      return;
    case 0xA4:
    case 0xA5:
    case 0xA6:
    case 0xA7:
    case 0xAA:
    case 0xAB:
    case 0xAE:
    case 0xAF:
      for (unsigned n : {kEcx, 6u, 7u}) state_.forget(n);
      return;
    case 0xC0:
    case 0xC1:
    case 0xD0:
    case 0xD1:
    case 0xD2:
    case 0xD3:
      return forget_operand(size());
    case 0xC2:
    case 0xC3:
      result_.flow = Flow::kReturn;
      state_.pop();
      return;
    case 0xC9:
      return leave();
    case 0xCD:
      result_.flow = in_.immediate == -0x80 ? Flow::kSystemCall : Flow::kStop;
      state_.forget(kEax);
      return;
    case 0xE8:
      return call();
    case 0xE9:
    case 0xEB:
      return jump(Flow::kJump);
    case 0xF6:
    case 0xF7:
      return group_f6();
    case 0xFE:
      return forget_operand(1);
    case 0xFF:
      return group_ff();
    case 0xDF:
      if (!in_.operand.memory) state_.forget(kEax);
      return;
    default:
      return;
  }
}

}  // namespace quarl::frames
