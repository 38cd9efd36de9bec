// SPDX-License-Identifier: Apache-2.0
// Unwinding instructions of .ARM.exidx, as compilers write them and as they do not.
#include "frames/sources/exidx_code.h"

#include <gtest/gtest.h>

#include <vector>

namespace quarl::frames {
namespace {

struct Case {
  const char* what;
  std::vector<uint8_t> code;
  FrameRule rule;
};

FrameRule rule_of(FrameBase base, int32_t cfa, int16_t back, int16_t r7 = 0, int16_t r11 = 0) {
  return {base, 0, back, cfa, r7, r11};
}

TEST(ExidxCode, SaysWhereTheFrameIs) {
  const Case cases[] = {
      {"pop {r4, lr}", {0xA8, 0xB0, 0xB0}, rule_of(kFrameSp, 8, -4)},
      {"add sp, #8; pop {r4-r7, lr}", {0x01, 0xAB}, rule_of(kFrameSp, 28, -4, -8)},
      {"pop {r4-r11, lr}", {0xAF}, rule_of(kFrameSp, 36, -4, -24, -8)},
      {"pop {r3, r4, r7, lr}: by mask", {0xB1, 0x08, 0x84, 0x09}, rule_of(kFrameSp, 16, -4, -8)},
      {"mov sp, r7; add sp, #16; pop {r7, lr}", {0x97, 0x03, 0x84, 0x08}, rule_of(kFrameR7, 24, -4, -8)},
      {"mov sp, r11; sub sp, #4; pop {r11, lr}", {0x9B, 0x40, 0x84, 0x80}, rule_of(kFrameR11, 4, -4, 0, -8)},
      {"vpop {d8-d9} and d16", {0xD1, 0xC8, 0x00, 0xA8}, rule_of(kFrameSp, 32, -4)},
      {"fldmfdx d8", {0xB8, 0xB3, 0x81, 0xA8}, rule_of(kFrameSp, 40, -4)},
      {"add sp, a long way; pop {r1-r3} of a variadic function",
       {0xB2, 0x04, 0xA8, 0x02},
       rule_of(kFrameSp, 0x204 + 16 + 20, -16)},
      {"what returns by lr alone", {0xB0}, rule_of(kFrameSp, 0, 0)},
  };
  for (const Case& each : cases) {
    auto rule = run_exidx(each.code);
    ASSERT_TRUE(rule) << each.what;
    EXPECT_EQ(rule->base, each.rule.base) << each.what;
    EXPECT_EQ(rule->cfa, each.rule.cfa) << each.what;
    EXPECT_EQ(rule->return_place, each.rule.return_place) << each.what;
    EXPECT_EQ(rule->frame_place, each.rule.frame_place) << each.what;
    EXPECT_EQ(rule->r11_place, each.rule.r11_place) << each.what;
  }
}

TEST(ExidxCode, RefusesWhatItDoesNotKnow) {
  const std::vector<uint8_t> cases[] = {
      {0x80, 0x00},              // refuses to unwind
      {0x94, 0xA8},              // sp from r4, which no rule has
      {0x9D},                    // reserved
      {0x88, 0x00, 0xB1, 0x00},  // no register
      {0x82, 0x00},              // sp itself from memory
      {0xA8, 0x97},              // another register when lr was found already
      {0xB1},
      {0x84},
      {0xB2, 0x80},  // cut short
      {0xB5},
      {0xCA, 0x00},
      {0xFF},
      {0xA8, 0x7F, 0x7F},  // lr above the frame that it belongs to
  };
  for (const std::vector<uint8_t>& each : cases) EXPECT_FALSE(run_exidx(each)) << int{each[0]};
}

}  // namespace
}  // namespace quarl::frames
