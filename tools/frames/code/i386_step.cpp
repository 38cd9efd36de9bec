// SPDX-License-Identifier: Apache-2.0
#include "frames/code/i386_execution.h"

namespace quarl::frames {

Step I386Execution::step() {
  result_.size = in_.size;
  bool full = in_.map == 0 && (in_.opcode == 0x68 || (in_.opcode & 0xF8) == 0xB8 || in_.opcode == 0xC7);
  if (full) result_.number = static_cast<uint32_t>(in_.immediate);
  if (in_.size == 0) {
    result_.flow = Flow::kStop;
  } else if (in_.map == 0) {
    one_byte();
  } else if (in_.map == 1) {
    two_byte();
  } else if (in_.map == 2 && in_.opcode >= 0xF0) {
    state_.forget(in_.reg);
  } else if (in_.map == 3 && in_.opcode >= 0x14 && in_.opcode <= 0x17) {
    forget_operand(4);
  }
  return result_;
}

Value I386Execution::address() const {
  if (!in_.operand.base || in_.operand.index || in_.segment) return {};
  return state_.reg(*in_.operand.base).plus(in_.operand.displacement);
}

Value I386Execution::operand() const {
  return in_.operand.memory ? state_.load(address()) : state_.reg(in_.operand.reg);
}

void I386Execution::set_operand(Value value) {
  if (in_.operand.memory) {
    state_.store(address(), value);
  } else {
    state_.set(in_.operand.reg, value);
  }
}

void I386Execution::forget_operand(unsigned size) {
  if (in_.operand.memory) return;
  state_.forget(size == 1 ? in_.operand.reg & 3 : in_.operand.reg);
}

void I386Execution::forget_reg(unsigned size) {
  state_.forget(size == 1 ? in_.reg & 3 : in_.reg);
}

unsigned I386Execution::size() const {
  return in_.opcode & 1 ? 4 : 1;
}

void I386Execution::move_stack(int32_t by) {
  state_.set(kEsp, state_.reg(kEsp).plus(by));
}

void I386Execution::jump(Flow flow) {
  result_.flow = flow;
  result_.target = code_.address + in_.size + static_cast<uint32_t>(in_.immediate);
}

Step step_i386(const CodeAt& code, StackState& state) {
  I386Instruction instruction = decode_i386(code.bytes);
  return I386Execution(code, instruction, state).step();
}

}  // namespace quarl::frames
