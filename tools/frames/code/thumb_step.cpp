// SPDX-License-Identifier: Apache-2.0
#include "frames/code/thumb_instruction.h"

namespace quarl::frames {

Step step_thumb(const CodeAt& code, StackState& state) {
  size_t size = code.half(0) >= 0xE800 ? 4 : 2;
  if (code.bytes.size() < size) return {};
  bool conditional = state.conditional > 0;
  if (!conditional) return ThumbInstruction(code, state).step();
  --state.conditional;
  StackState before = state;
  Step step = ThumbInstruction(code, state).step();
  step.conditional = true;
  if (step.flow == Flow::kJump && step.target) step.flow = Flow::kBranch;
  if (step.flow == Flow::kNext || step.flow == Flow::kSystemCall) state.join(before);
  if (step.flow == Flow::kStop) step.flow = Flow::kNext;
  state.conditional = before.conditional;
  return step;
}

}  // namespace quarl::frames
