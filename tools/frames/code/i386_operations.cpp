// SPDX-License-Identifier: Apache-2.0
// What groups of instructions have in common: arithmetic, moves, calls.
#include "frames/code/i386_execution.h"

namespace quarl::frames {

void I386Execution::arithmetic() {
  unsigned group = in_.opcode >> 3 & 7, form = in_.opcode & 7;
  if (group == 7 || form > 5) return;  // compares, and segment registers pushed and popped below
  if (form == 4 || form == 5) return state_.forget(kEax);
  bool to_reg = form >= 2;
  // xor of a register with itself is 0, and needs no more than to be forgotten.
  if (to_reg)
    forget_reg(size());
  else
    forget_operand(size());
}

void I386Execution::arithmetic_immediate() {
  if (in_.reg == 7) return;
  bool moves = in_.opcode != 0x80 && !in_.operand.memory && (in_.reg == 0 || in_.reg == 5);
  if (moves) return set_operand(operand().plus(in_.reg == 0 ? in_.immediate : negative(in_.immediate)));
  const bool rounds = in_.opcode != 0x80 && in_.reg == 4 && in_.immediate < 0;
  if (rounds && !in_.operand.memory && in_.operand.reg == kEsp) return state_.realign();
  forget_operand(in_.opcode == 0x80 ? 1 : 4);
}

void I386Execution::moves() {
  switch (in_.opcode) {
    case 0x89:
      return set_operand(in_.word ? Value{} : state_.reg(in_.reg));
    case 0x8B:
      return state_.set(in_.reg, in_.word ? Value{} : operand());
    case 0x8D:
      return state_.set(in_.reg, address());
    case 0x88:
      return forget_operand(1);
    case 0x8A:
      return forget_reg(1);
    case 0x8F: {
      Value value = state_.pop();
      return set_operand(value);
    }
    case 0xC7:
      return set_operand(constant(in_.immediate));
    case 0xC6:
      return forget_operand(1);
    default:
      return forget_operand(4);
  }
}

void I386Execution::group_ff() {
  switch (in_.reg) {
    case 2:
      result_.flow = Flow::kCall;
      break;
    case 4:
      result_.flow = Flow::kJump;
      break;
    case 6:
      return state_.push(operand());
    case 3:
    case 5:
    case 7:
      result_.flow = Flow::kStop;
      return;
    default:
      return set_operand(in_.operand.memory ? Value{} : operand().plus(in_.reg == 0 ? 1 : -1));
  }
  if (result_.flow == Flow::kCall) state_.call(false);
}

void I386Execution::leave() {
  state_.set(kEsp, state_.reg(kEbp));
  Value value = state_.pop();
  state_.set(kEbp, value);
}

// A call of what follows it only asks where it is: what it pushed is popped.
void I386Execution::call() {
  jump(Flow::kCall);
  if (in_.immediate == 0) {
    state_.push({});
    result_.flow = Flow::kNext;
    result_.target.reset();
  } else {
    state_.call(false);
  }
}

void I386Execution::group_f6() {
  if (in_.reg < 2) return;
  if (in_.reg < 4) return forget_operand(size());
  state_.forget(kEax);
  state_.forget(kEdx);
}

}  // namespace quarl::frames
