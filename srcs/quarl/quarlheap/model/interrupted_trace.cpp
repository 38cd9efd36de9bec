// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/interrupted_trace.h"

#include "frames/step.h"
#include "interrupted.h"
#include "platform/maps_reader.h"
#include "quarlheap/model/code_pages.h"

namespace quarl {
namespace {

// What is there of the stack: a stack that has overflowed begins above its pointer.
struct StackThere {
  uint32_t low = 0;
  uint32_t high = 0;
};

StackThere stack_there(uint32_t sp) {
  constexpr uint32_t kLargestFrame = 16U << 20;
  MapsReader maps;
  MapsLine line;
  while (maps.next(&line)) {
    if (line.high <= sp || !line.readable) continue;
    if (line.low > sp && line.low - sp > kLargestFrame) break;
    return {static_cast<uint32_t>(line.low), static_cast<uint32_t>(line.high)};
  }
  return {};
}

bool is_code(uint32_t address) {
  return code_page(address) != kNoCode;
}

class InterruptedWalk {
 public:
  InterruptedWalk(const Registers& at, const StackThere& stack) : at_(at), stack_(stack) {}

  // To the next return address; false at the end.
  bool step() {
    if (at_.interrupted && !is_code(at_.pc))
      return frame::leave_wild_jump(&at_, stack_.low, stack_.high) && is_code(at_.pc);
    if (!(frames_in_use ? step_by_rule() : step_by_pointer())) return false;
    return is_code(at_.pc);
  }
  uint32_t pc() const { return at_.pc; }
  bool ends_here() const { return is_outermost(at_.pc); }

 private:
  bool step_by_pointer() {
    if (at_.sp < stack_.low) at_.sp = stack_.low;
    return frame::leave_by_pointer(&at_, stack_.high, false);
  }

  bool step_by_rule() {
    const StepWord step = look_up_step(at_.pc, at_.interrupted);
    if (step == 0 || (at_.sp < stack_.low && !saved_words_are_there(step))) return false;
    return is_packed(step) ? leave_by_word(step, &at_, stack_.high) : leave_by_rule(rule_of(step), &at_, stack_.high);
  }

  // Of the frame that has left the stack. A rule reads no further below the CFA.
  bool saved_words_are_there(StepWord step) const {
    constexpr uint32_t kFurthest = 1U << detail::kStepFrame.bits << 2;
    uint32_t cfa = 0;
    if (is_packed(step)) {
      const uint32_t base = detail::kStepBase.of(step);
      const uint32_t from = base == 0 ? at_.sp : !frame::kHasR11 || base == 1 ? at_.frame : at_.r11;
      cfa = from + detail::kStepCfa.of(step) * 4;
    } else if (rule_of(step).base == kFrameSp) {
      cfa = frame_address(rule_of(step), at_, stack_.high);
    }
    return cfa > stack_.low && cfa - stack_.low >= kFurthest;
  }

  Registers at_;
  const StackThere stack_;
};

}  // namespace

void capture_interrupted(Registers at, CallTrace* trace) {
  trace->depth = 0;
  const StackThere stack = stack_there(at.sp);
  if (at.sp % 4 != 0 || stack.high == 0) return;
  InterruptedWalk walk(at, stack);
  while (trace->depth < kMaxTrace && walk.step()) {
    trace->words[trace->depth++] = walk.pc();
    if (walk.ends_here()) return;
  }
}

}  // namespace quarl
