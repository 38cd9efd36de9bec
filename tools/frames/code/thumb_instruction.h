// SPDX-License-Identifier: Apache-2.0
// A Thumb instruction of 16 or 32 bits, decoded into its effects.
#pragma once

#include <optional>

#include "frames/code/arm_effects.h"

namespace quarl::frames {

class ThumbInstruction {
 public:
  ThumbInstruction(const CodeAt& code, StackState& state)
      : half_(code.half(0)), second_(code.half(2)), pc_(code.address + 4), state_(state), effects_(code, pc_, state) {}

  Step step() {
    bool wide = half_ >= 0xE800;
    effects_.result.size = wide ? 4 : 2;
    wide ? wide_instruction() : narrow_instruction();
    return effects_.result;
  }

 private:
  using Place = ArmEffects::Place;

  void narrow_instruction();
  void narrow_shift(unsigned to, unsigned from);
  void narrow_add(unsigned to, unsigned from);
  void narrow_processing(unsigned to);
  void high_registers();
  void miscellaneous();
  void conditional_branch();
  unsigned rn() const { return half_ & 0xF; }
  unsigned rt() const { return second_ >> 12; }
  unsigned rd() const { return second_ >> 8 & 0xF; }
  void wide_instruction();
  void wide_many();
  void wide_pair();
  void wide_shifted();
  void modified_immediate();
  void plain_immediate();
  void wide_branch();
  std::optional<Place> place() const;
  void wide_store();
  void wide_load();
  void coprocessor();

  uint32_t half_, second_, pc_;
  StackState& state_;
  ArmEffects effects_;
};

}  // namespace quarl::frames
