// SPDX-License-Identifier: Apache-2.0
// One instruction: how long it is, where it leads, and what it does to the stack and to the registers that matter
// there.
#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "frames/code/stack_state.h"

namespace quarl::frames {

enum class Flow : uint8_t {
  kNext,
  kCall,        // returns behind it
  kSystemCall,  // the same
  kBranch,      // to the target or on
  kJump,        // to the target, or by register or memory when there is none
  kReturn,      // to the caller, or on when it is conditional
  kStop,        // no instruction that a program goes through
};

struct Step {
  uint8_t size = 0;  // 0: no instruction
  Flow flow = Flow::kNext;
  bool conditional = false;         // kReturn, kJump: may also go on
  bool thumb = false;               // of the target
  bool returns = false;             // ARM: jumps to lr or to a word popped, as a return does, whatever that is
  std::optional<uint32_t> target;   // direct calls, branches and jumps
  std::optional<uint32_t> literal;  // the word of data in the code that it reads
  std::optional<uint32_t> number;   // i386: an operand of 32 bits, perhaps a pointer
};

// The code from an address on. Instructions do not lie across the end of `bytes`.
struct CodeAt {
  uint32_t address;
  std::span<const uint8_t> bytes;

  uint32_t half(size_t at) const { return at + 2 <= bytes.size() ? bytes[at] | bytes[at + 1] << 8 : 0; }
  uint32_t word(size_t at) const { return half(at) | half(at + 2) << 16; }
};

// Each makes one step, with `state` as it is before it and then behind it.
Step step_i386(const CodeAt& code, StackState& state);
Step step_arm(const CodeAt& code, StackState& state);
Step step_thumb(const CodeAt& code, StackState& state);

}  // namespace quarl::frames
