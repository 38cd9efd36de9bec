// SPDX-License-Identifier: Apache-2.0
// How a frame is left, in a word: most rules as they are, the others as the address of one.
//
//   i686   bit 0: 1   1: CFA from ebp, else from esp   2-9: ebp is saved so many words below the CFA (0: unchanged)
//          10-31: words from the register to the CFA; the return address is the word below the CFA
//   ARM    bit 0: 1   1-2: CFA from sp, r7, r11   3-7: words below the CFA where the return address is, 8-12: r7,
//          13-17: r11 (0: unchanged)   18-31: words from the register to the CFA
//
// An address of a rule has bit 0 clear; 0 is no code.
#pragma once

#include "frames/table_format.h"
#include "platform/address.h"
#include "unwind.h"

namespace quarl {

using StepWord = uint32_t;

namespace detail {
struct StepField {
  int low;
  int bits;
  constexpr uint32_t of(StepWord word) const { return word >> low & ((1U << bits) - 1); }
  constexpr bool fits(uint32_t value) const { return value < 1U << bits; }
  constexpr StepWord with(uint32_t value) const { return value << low; }
};
inline constexpr StepField kStepBase = frame::kHasR11 ? StepField{1, 2} : StepField{1, 1};
inline constexpr StepField kStepReturn = {3, 5};
inline constexpr StepField kStepFrame = frame::kHasR11 ? StepField{8, 5} : StepField{2, 8};
inline constexpr StepField kStepR11 = {13, 5};
inline constexpr StepField kStepCfa = frame::kHasR11 ? StepField{18, 14} : StepField{10, 22};
}  // namespace detail

constexpr bool is_packed(StepWord word) {
  return (word & 1) != 0;
}
inline const FrameRule& rule_of(StepWord word) {
  return *static_cast<const FrameRule*>(pointer_to(word));
}

// The word of a rule that stays where it is; packed when it can be.
StepWord step_word(const FrameRule& rule);

}  // namespace quarl
