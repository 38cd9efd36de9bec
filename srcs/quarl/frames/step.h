// SPDX-License-Identifier: Apache-2.0
// From a frame to its caller, by the rule of the frame. Reads only the stack between sp and its end.
#pragma once

#include "frames/rules.h"
#include "platform/address.h"
#include "platform/registers.h"
#include "unwind.h"

namespace quarl {

// A register that the function saved at a place below the CFA. `room`: bytes between sp and the CFA.
inline bool restore(int16_t place, uint32_t cfa, uint32_t room, uint32_t* value) {
  if (place == kPlaceUnchanged) return true;
  const auto below = static_cast<uint32_t>(-int32_t{place});
  if (place != kPlaceLost && below > room) return false;
  *value = place == kPlaceLost ? 0 : word_at(cfa - below);
  return true;
}

// Whether a word of the stack lies there.
inline bool lies_between(uint32_t place, uint32_t sp, uint32_t high) {
  return place % 4 == 0 && place >= sp && place <= high - 4;
}

// The CFA, 0 when it cannot be had.
inline uint32_t frame_address(const FrameRule& rule, const Registers& in, uint32_t high) {
  const auto offset = static_cast<uint32_t>(rule.cfa);
  if (rule.base == kFrameSp) return in.sp + offset;
  if (rule.base == (frame::kHasR11 ? kFrameR7 : kFrameEbp)) return in.frame + offset;
  if (frame::kHasR11) return rule.base == kFrameR11 ? in.r11 + offset : 0;
  const uint32_t place = in.frame + offset;
  return rule.base == kFrameEbpWord && lies_between(place, in.sp, high) ? word_at(place) : 0;
}

// The caller's ebp of a realigned frame, which is nowhere at a distance from the CFA.
inline bool restore_realigned(Registers* in, uint32_t high) {
  if (!lies_between(in->frame, in->sp, high)) return false;
  in->frame = word_at(in->frame);
  return true;
}

// False: the trace ends. `high` ends the stack; sp is a multiple of 4 and not above it.
inline bool leave_by_table(const FrameRule& rule, Registers* in, uint32_t high) {
  const uint32_t cfa = frame_address(rule, *in, high);
  const uint32_t room = cfa - in->sp;
  if (cfa % 4 != 0 || cfa < in->sp || cfa > high) return false;
  const bool leaf = frame::kHasR11 && rule.return_place == kPlaceUnchanged;
  if (room == 0 && !leaf) return false;
  uint32_t pc = in->link;
  if (!restore(rule.return_place, cfa, room, &pc)) return false;
  const bool realigned = !frame::kHasR11 && rule.base == kFrameEbpWord;
  const bool restored = realigned ? restore_realigned(in, high) : restore(rule.frame_place, cfa, room, &in->frame);
  if (!restored) return false;
  if (frame::kHasR11 && !restore(rule.r11_place, cfa, room, &in->r11)) return false;
  in->pc = pc;
  in->sp = cfa;
  in->link = 0;
  in->interrupted = false;
  return pc != 0;
}

inline bool leave_by_rule(const FrameRule& rule, Registers* in, uint32_t high) {
  if (rule.base >= kFrameSp && rule.base <= kFrameR11) return leave_by_table(rule, in, high);
  if (rule.base == kFrameByPointer || rule.base == kFrameOwn) {
    return frame::leave_by_pointer(in, high, rule.base == kFrameOwn);
  }
  if (rule.base == kFrameSignal || rule.base == kFrameRtSignal) {
    return frame::leave_signal_frame(in, high, rule.base == kFrameRtSignal);
  }
  return rule.base == kFrameSystemCall && frame::leave_system_call(in, high);
}

// The same of a packed rule, for a walk that has no time: sp is a multiple of 4 and not above `high`.
inline bool leave_by_word(StepWord step, Registers* in, uint32_t high) {
  using namespace detail;
  const uint32_t base = kStepBase.of(step);
  const uint32_t from = base == 0 ? in->sp : !frame::kHasR11 || base == 1 ? in->frame : in->r11;
  const uint32_t cfa = from + kStepCfa.of(step) * 4;
  const uint32_t bytes = cfa - in->sp;
  const uint32_t room = bytes >> 2 | bytes << 30;  // words; of bytes that are no multiple of 4 more than any stack has
  if (__builtin_expect(room - 1 >= (high - in->sp) / 4, 0)) return false;
  const uint32_t back = frame::kHasR11 ? kStepReturn.of(step) : 1;
  const uint32_t saved = kStepFrame.of(step);
  const uint32_t saved_r11 = frame::kHasR11 ? kStepR11.of(step) : 0;
  if (__builtin_expect(back > room || saved > room || saved_r11 > room, 0)) return false;
  in->pc = word_at(cfa - back * 4);
  if (saved != 0) in->frame = word_at(cfa - saved * 4);
  if (saved_r11 != 0) in->r11 = word_at(cfa - saved_r11 * 4);
  in->sp = cfa;
  return true;
}

}  // namespace quarl
