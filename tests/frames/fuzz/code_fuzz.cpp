// SPDX-License-Identifier: Apache-2.0
// Any bytes as code of each kind: every instruction ends within what there is or says so, a state only ever forgets
// when it meets another one, and a rule keeps the bounds of the table's format.
#include <cstdint>
#include <cstdlib>

#include "frames/code/step.h"
#include "frames/code/table_jump.h"

namespace {

using namespace quarl::frames;

void require(bool holds) {
  if (!holds) std::abort();
}

void check_rule(const StackState& state, bool arm) {
  auto rule = state.rule(arm);
  if (!rule) return;
  require(rule->base != quarl::kFrameEnd && rule->return_place <= 0 && rule->return_place != quarl::kPlaceLost);
  require(rule->frame_place <= 0 && rule->r11_place <= 0);
  require(state.agrees(*rule, arm) == true);
}

void follow(std::span<const uint8_t> bytes, Step (*step)(const CodeAt&, StackState&), bool arm, bool thumb) {
  StackState state = StackState::at_function_start(arm), earlier = state;
  for (size_t at = 0; at < bytes.size();) {
    CodeAt code{static_cast<uint32_t>(0x1000 + at), bytes.subspan(at)};
    Step made = step(code, state);
    require(made.size <= 15);
    if (arm && made.flow == Flow::kJump && !made.target) {
      require(jump_table(code, bytes.first(at), thumb, state).targets.size() <= 4096);
    }
    if (made.size == 0) break;
    check_rule(state, arm);
    at += made.size;
  }
  StackState met = state;
  met.join(earlier);
  require(!met.join(state) && !met.join(earlier));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  follow({data, size}, step_i386, false, false);
  follow({data, size}, step_arm, true, false);
  follow({data, size}, step_thumb, true, true);
  return 0;
}
