// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/rule_trace.h"

#include "frames/step.h"
#include "platform/stack.h"

namespace quarl {
namespace {

// Out of the way of the walk, and with registers of its own, so that the walk keeps its own in the processor's. The
// next step goes to `step`, 0 at the end.
struct SlowStep {
  Registers registers;
  StepWord step;
};
[[gnu::cold, gnu::noinline]] SlowStep leave_slowly(StepWord step, Registers in, uint32_t high) {
  if (!leave_by_rule(rule_of(step), &in, high)) return {in, 0};
  return {in, in.interrupted ? look_up_step(in.pc, true) : StepCache().at(in.pc)};
}

}  // namespace

// Each address is known for code before it is stored, by the rule that leads on from there.
[[gnu::noinline]] int capture_by_rules(uintptr_t hook_frame, uint32_t* buf, int max) {
  const auto high = static_cast<uint32_t>(stack_around(hook_frame).high);
  Registers at;
  if (!frame::leave_own_frames(static_cast<uint32_t>(hook_frame), &at, high)) return 0;
  uint32_t* out = buf;
  const uint32_t* const end = buf + max;
  while (own_code.holds(at.pc)) {
    *out++ = at.pc;
    if (out == end || !frame::leave_by_pointer(&at, high, true)) return static_cast<int>(out - buf);
  }
  if (__builtin_expect(loader_code.holds(at.pc), 0)) note_loader_at_work();
  const StepCache steps;
  for (StepWord step = steps.at(at.pc); step != 0;) {
    *out++ = at.pc;
    if (out == end) break;
    if (__builtin_expect(is_packed(step), 1)) {
      if (!leave_by_word(step, &at, high)) break;
      step = steps.at(at.pc);
    } else {
      const SlowStep slow = leave_slowly(step, at, high);
      at = slow.registers;
      step = slow.step;
    }
  }
  return static_cast<int>(out - buf);
}

}  // namespace quarl
