// SPDX-License-Identifier: Apache-2.0
// What an i386 instruction does to the stack. Registers whose new value is not followed are forgotten.
#pragma once

#include "frames/code/i386_layout.h"
#include "frames/code/step.h"

namespace quarl::frames {

class I386Execution {
 public:
  I386Execution(const CodeAt& code, const I386Instruction& in, StackState& state)
      : code_(code), in_(in), state_(state) {}

  Step step();

 private:
  Value address() const;
  Value operand() const;
  void set_operand(Value value);
  // A byte register is a part of one of the first four.
  void forget_operand(unsigned size);
  void forget_reg(unsigned size);
  unsigned size() const;
  void move_stack(int32_t by);
  void jump(Flow flow);
  void arithmetic();
  void arithmetic_immediate();
  void moves();
  void group_ff();
  void leave();
  void one_byte();
  void call();
  void group_f6();
  void two_byte();

  static constexpr unsigned kEax = 0, kEcx = 1, kEdx = 2, kEsp = StackState::kEsp, kEbp = StackState::kEbp;

  const CodeAt& code_;
  const I386Instruction& in_;
  StackState& state_;
  Step result_;
};

}  // namespace quarl::frames
