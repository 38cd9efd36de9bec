// SPDX-License-Identifier: Apache-2.0
#include "frames/step.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace quarl {
namespace {

constexpr int16_t kPlaces[] = {kPlaceUnchanged, kPlaceLost, -4, -8, -64, -0x7FFC};
constexpr uint8_t kBases[] = {kFrameEnd, kFrameSp,     kFrameEbp,      kFrameEbpWord,   kFrameR7,
                              kFrameR11, kFrameSignal, kFrameRtSignal, kFrameByPointer, kFrameSystemCall};

// Whatever a table may say of a machine's frames, with whatever in the registers and on the stack: only the stack
// between sp and its end is read (the sanitized build sees it), sp rises, and the trace ends some time.
TEST(FrameStepTest, NoRuleLeavesTheStack) {
  std::mt19937 random(7);
  const auto any_of = [&](const auto& values) { return values[random() % std::size(values)]; };
  const uint32_t words = 256;
  const std::unique_ptr<uint32_t[]> stack(new uint32_t[words]);
  const uint32_t low = address_of(stack.get());
  const uint32_t high = low + words * 4;
  for (int round = 0; round < 200'000; ++round) {
    const auto near_stack = [&] { return low + static_cast<uint32_t>(random() % (words * 4 + 64)) - 32; };
    const auto any_word = [&] { return random() % 4 == 0 ? static_cast<uint32_t>(random()) : near_stack(); };
    for (uint32_t i = 0; i < 8; ++i) stack[random() % words] = any_word() & ~3U * (random() % 2);
    Registers at{1, low + 4 * static_cast<uint32_t>(random() % words), any_word(), any_word(), 0, false};
    for (int steps = 0;; ++steps) {
      ASSERT_LE(steps, static_cast<int>(2 * words));
      const uint32_t sp = at.sp;
      const bool may_be_a_leaf = at.link != 0;  // a signal came there, and nothing is on the stack
      const FrameRule rule{any_of(kBases),  0,
                           any_of(kPlaces), static_cast<int32_t>(random() % 600) * 4 - 800,
                           any_of(kPlaces), any_of(kPlaces)};
      at.pc = 0;  // no code is looked at
      const StepWord step = step_word(rule);
      if (is_packed(step) ? !leave_by_word(step, &at, high) : !leave_by_rule(rule, &at, high)) break;
      ASSERT_TRUE(at.sp > sp || (may_be_a_leaf && at.sp == sp));
      ASSERT_TRUE(!may_be_a_leaf || at.link == 0 || at.sp > sp);
      ASSERT_LE(at.sp, high);
    }
  }
}

}  // namespace
}  // namespace quarl
