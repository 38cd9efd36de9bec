// SPDX-License-Identifier: Apache-2.0
// The stack followed through straight code: bytes as the assembler gives them, and the rule for a call behind them.
#include <gtest/gtest.h>

#include <vector>

#include "frames/code/i386_layout.h"
#include "frames/code/step.h"
#include "frames/code/table_jump.h"

namespace quarl::frames {
namespace {

using StepFunction = Step (*)(const CodeAt&, StackState&);

struct Case {
  const char* what;
  StepFunction step;
  std::vector<uint8_t> code;
  FrameBase base;
  int32_t cfa;
  int16_t back, frame, r11;
};

StackState behind(const Case& each) {
  bool arm = each.step != step_i386;
  StackState state = StackState::at_function_start(arm);
  for (size_t at = 0; at < each.code.size();) {
    Step step = each.step({static_cast<uint32_t>(0x1000 + at), std::span(each.code).subspan(at)}, state);
    EXPECT_NE(step.size, 0) << each.what;
    if (step.size == 0) break;
    at += step.size;
  }
  return state;
}

TEST(Code, LeadsToTheFrame) {
  const Case cases[] = {
      {"push {r4, r7, lr}; sub sp, #20", step_thumb, {0x90, 0xB5, 0x85, 0xB0}, kFrameSp, 32, -4, 0, 0},
      {"push.w {r4-r11, lr}; vpush {d8}; mov r11, r0",
       step_thumb,
       {0x2D, 0xE9, 0xF0, 0x4F, 0x2D, 0xED, 0x02, 0x8B, 0x83, 0x46},
       kFrameSp,
       44,
       -4,
       0,
       -8},
      {"push {r0-r3}; push {r7, lr}; add r7, sp, #0; sub sp, r3",
       step_thumb,
       {0x0F, 0xB4, 0x80, 0xB5, 0x00, 0xAF, 0xAD, 0xEB, 0x03, 0x0D},
       kFrameR7,
       24,
       -20,
       -24,
       0},
      {"str lr, [sp, #-4]!; it ne; movne r7, r1",
       step_thumb,
       {0x4D, 0xF8, 0x04, 0xED, 0x18, 0xBF, 0x0F, 0x46},
       kFrameSp,
       4,
       -4,
       kPlaceLost,
       0},
      {"push {lr}; ldr r3, =-4096; add sp, r3",
       step_thumb,
       {0x00, 0xB5, 0x01, 0x4B, 0x9D, 0x44, 0x00, 0xBF, 0x00, 0xF0, 0xFF, 0xFF},
       kFrameSp,
       4100,
       -4,
       0,
       0},
      {"push {r4, lr}; add sp, #-8 and back; pop {r4}; lr stays in its place",
       step_thumb,
       {0x10, 0xB5, 0x82, 0xB0, 0x02, 0xB0, 0x10, 0xBC},
       kFrameSp,
       4,
       -4,
       0,
       0},
      {"mov ip, sp; stmdb sp!, {fp, ip, lr, pc}; sub fp, ip, #4; sub sp, #8",
       step_arm,
       {0x0D, 0xC0, 0xA0, 0xE1, 0x00, 0xD8, 0x2D, 0xE9, 0x04, 0xB0, 0x4C, 0xE2, 0x08, 0xD0, 0x4D, 0xE2},
       kFrameSp,
       24,
       -8,
       0,
       -16},
      {"push {fp, lr}; add fp, sp, #4; bic sp, sp, #7",
       step_arm,
       {0x00, 0x48, 0x2D, 0xE9, 0x04, 0xB0, 0x8D, 0xE2, 0x07, 0xD0, 0xCD, 0xE3},
       kFrameR11,
       4,
       -4,
       0,
       -8},
      {"push {r4, lr}; popne {r4, pc}",
       step_arm,
       {0x10, 0x40, 0x2D, 0xE9, 0x10, 0x80, 0xBD, 0x18},
       kFrameSp,
       0,
       -4,
       0,
       0},
      {"push ebp; mov ebp, esp; push ebx; and esp, -16",
       step_i386,
       {0x55, 0x89, 0xE5, 0x53, 0x83, 0xE4, 0xF0},
       kFrameEbp,
       8,
       -4,
       -8,
       0},
      {"lea ecx, [esp+4]; and esp, -16; push [ecx-4]; push ebp; mov ebp, esp; push ebx; push ecx; sub esp, 24",
       step_i386,
       {0x8D, 0x4C, 0x24, 0x04, 0x83, 0xE4, 0xF0, 0xFF, 0x71, 0xFC, 0x55, 0x89, 0xE5, 0x53, 0x51, 0x83, 0xEC, 0x18},
       kFrameEbpWord,
       -8,
       -4,
       0,
       0},
      {"push esi; sub esp, 24; push 1; lea esp, [esp+4]",
       step_i386,
       {0x56, 0x83, 0xEC, 0x18, 0x6A, 0x01, 0x8D, 0x64, 0x24, 0x04},
       kFrameSp,
       32,
       -4,
       0,
       0},
      {"push ebp; mov ebp, eax; call next; pop ebx",
       step_i386,
       {0x55, 0x89, 0xC5, 0xE8, 0, 0, 0, 0, 0x5B},
       kFrameSp,
       8,
       -4,
       -8,
       0},
  };
  for (const Case& each : cases) {
    bool arm = each.step != step_i386;
    // Behind a conditional return everything is as before it.
    if (std::string_view(each.what).ends_with("popne {r4, pc}")) continue;
    auto rule = behind(each).rule(arm);
    ASSERT_TRUE(rule) << each.what;
    EXPECT_EQ(rule->base, each.base) << each.what;
    EXPECT_EQ(rule->cfa, each.cfa) << each.what;
    EXPECT_EQ(rule->return_place, each.back) << each.what;
    EXPECT_EQ(rule->frame_place, each.frame) << each.what;
    EXPECT_EQ(rule->r11_place, each.r11) << each.what;
    EXPECT_EQ(rule->flags, kRuleDerived);
  }
}

TEST(Code, TellsWhereItLeads) {
  struct {
    const char* what;
    StepFunction step;
    std::vector<uint8_t> code;
    Flow flow;
    std::optional<uint32_t> target;
    bool thumb;
  } const cases[] = {
      {"bl back", step_thumb, {0xFF, 0xF7, 0xFE, 0xFF}, Flow::kCall, 0x1000, true},
      {"blx to ARM code", step_thumb, {0x00, 0xF0, 0x02, 0xE8}, Flow::kCall, 0x1008, false},
      {"beq.w", step_thumb, {0x00, 0xF0, 0x02, 0x80}, Flow::kBranch, 0x1008, true},
      {"cbz", step_thumb, {0x08, 0xB1}, Flow::kBranch, 0x1006, true},
      {"bx lr", step_thumb, {0x70, 0x47}, Flow::kReturn, {}, false},
      {"bx pc", step_thumb, {0x78, 0x47}, Flow::kJump, 0x1004, false},
      {"udf", step_thumb, {0x00, 0xDE}, Flow::kStop, {}, false},
      {"blx to Thumb code", step_arm, {0x01, 0x00, 0x00, 0xFB}, Flow::kCall, 0x100E, true},
      {"bne", step_arm, {0xFE, 0xFF, 0xFF, 0x1A}, Flow::kBranch, 0x1000, false},
      {"svc", step_arm, {0x00, 0x00, 0x00, 0xEF}, Flow::kSystemCall, {}, false},
      {"svc", step_thumb, {0x00, 0xDF}, Flow::kSystemCall, {}, false},
      {"blx r3", step_arm, {0x33, 0xFF, 0x2F, 0xE1}, Flow::kCall, {}, false},
      {"udf", step_arm, {0xF0, 0x00, 0xF0, 0xE7}, Flow::kStop, {}, false},
      {"int 0x80", step_i386, {0xCD, 0x80}, Flow::kSystemCall, {}, false},
      {"int 0x10", step_i386, {0xCD, 0x10}, Flow::kStop, {}, false},
      {"call [ebx+8]", step_i386, {0xFF, 0x53, 0x08}, Flow::kCall, {}, false},
      {"call gs:[16]", step_i386, {0x65, 0xFF, 0x15, 0x10, 0, 0, 0}, Flow::kCall, {}, false},
      {"jne far", step_i386, {0x0F, 0x85, 0xFA, 0x0F, 0, 0}, Flow::kBranch, 0x2000, false},
      {"ret 4", step_i386, {0xC2, 0x04, 0x00}, Flow::kReturn, {}, false},
  };
  for (const auto& each : cases) {
    StackState state = StackState::at_function_start(each.step != step_i386);
    Step step = each.step({0x1000, each.code}, state);
    EXPECT_EQ(step.size, each.code.size()) << each.what;
    EXPECT_EQ(step.flow, each.flow) << each.what;
    EXPECT_EQ(step.target, each.target) << each.what;
    if (each.target) EXPECT_EQ(step.thumb, each.thumb) << each.what;
  }
}

// The jump is at 0x1000, the table behind it.
TEST(Code, KnowsTablesOfCases) {
  const struct {
    const char* what;
    std::vector<uint8_t> before, code;
    uint32_t address, size;
    std::vector<uint32_t> targets;
  } cases[] = {
      {"cmp r4, #2; tbb [pc, r4]; 1, 2, 3, padding",
       {0x02, 0x2C},
       {0xDF, 0xE8, 0x04, 0xF0, 1, 2, 3, 0},
       0x1004,
       3,
       {0x1006, 0x1008, 0x100A}},
      {"cmp r2, #1; bhi; adr r3; ldr r2, [r3, r2, lsl #2]; add r3, r2; bx r3; nop",
       {0x01, 0x2A, 0x00, 0xD8, 0x02, 0xA3, 0x53, 0xF8, 0x22, 0x20, 0x13, 0x44},
       {0x18, 0x47, 0x00, 0xBF, 0x0D, 0, 0, 0, 0x11, 0, 0, 0},
       0x1004,
       8,
       {0x1010, 0x1014}},
      {"cmp r6, #1; bhi.w; adr lr; ldr r6, [lr, r6, lsl #2]; add lr, r6; bx lr; nop",
       {0x01, 0x2E, 0x00, 0xF2, 0xF2, 0x80, 0x0F, 0xF2, 0x0C, 0x0E, 0x5E, 0xF8, 0x26, 0x60, 0xB6, 0x44},
       {0x70, 0x47, 0x00, 0xBF, 0x0D, 0, 0, 0, 0xF5, 0xFF, 0xFF, 0xFF},
       0x1004,
       8,
       {0x1010, 0x0FF8}},
      {"cmp r2, #1; bhi; adr lr; ldr pc, [lr, r2, lsl #2]",
       {0x01, 0x2A, 0xE6, 0xD8, 0x0F, 0xF2, 0x04, 0x0E},
       {0x5E, 0xF8, 0x22, 0xF0, 0x49, 0x10, 0, 0, 0x3F, 0x10, 0, 0},
       0x1004,
       8,
       {0x1048, 0x103E}},
      {"cmp r0, #1; cmp.w r0, #274; tbh [pc, r0], of which not all is there",
       {0x01, 0x28, 0xB0, 0xF5, 0x89, 0x7F},
       {0xDF, 0xE8, 0x10, 0xF0, 3, 0, 4, 0, 5, 0},
       0x1004,
       6,
       {0x100A, 0x100C, 0x100E}},
      {"cmp.w r9, #1; cmp r1, #9; tbb [pc, r9]",
       {0xB9, 0xF1, 0x01, 0x0F, 0x09, 0x29},
       {0xDF, 0xE8, 0x09, 0xF0, 1, 2, 3, 4},
       0x1004,
       2,
       {0x1006, 0x1008}},
      {"cmp r2, #9; cmp r2, r6, which is 1; tbh [pc, r2]",
       {0x09, 0x2A, 0xB2, 0x42},
       {0xDF, 0xE8, 0x12, 0xF0, 2, 0, 3, 0},
       0x1004,
       4,
       {0x1008, 0x100A}},
      {"cmp r2, #9; cmp r2, r7, which is not known; tbh [pc, r2]",
       {0x09, 0x2A, 0xBA, 0x42},
       {0xDF, 0xE8, 0x12, 0xF0, 2, 0, 3, 0},
       0,
       0,
       {}},
      {"cmp r1, #1; bx lr behind a load that is no case", {0x01, 0x29, 0x52, 0xF8, 0x21, 0x00}, {0x70, 0x47}, 0, 0, {}},
  };
  StackState state = StackState::at_function_start(true);
  state.set(6, constant(1));
  for (const auto& each : cases) {
    JumpTable table = jump_table({0x1000, each.code}, each.before, true, state);
    EXPECT_EQ(table.address, each.address) << each.what;
    EXPECT_EQ(table.size, each.size) << each.what;
    EXPECT_EQ(table.targets, each.targets) << each.what;
  }
}

// The registers that no longer hold what they did when the function was called.
std::vector<unsigned> overwritten(StepFunction step, const std::vector<uint8_t>& code) {
  const bool arm = step != step_i386;
  StackState state = StackState::at_function_start(arm);
  EXPECT_EQ(step({0x1000, code}, state).size, code.size());
  std::vector<unsigned> found;
  for (uint8_t number = 0; number < (arm ? 15 : 8); ++number) {
    const bool stack = number == (arm ? StackState::kSp : StackState::kEsp);
    if (!stack && state.reg(number) != Value{Value::kEntry, number, 0}) found.push_back(number);
  }
  return found;
}

TEST(Code, ForgetsWhatIsOverwritten) {
  const struct {
    const char* what;
    StepFunction step;
    std::vector<uint8_t> code;
    std::vector<unsigned> registers;
  } cases[] = {
      {"add al, 1", step_i386, {0x04, 0x01}, {0}},
      {"add eax, 1", step_i386, {0x05, 1, 0, 0, 0}, {0}},
      {"xor ecx, ecx", step_i386, {0x31, 0xC9}, {1}},
      {"cmp eax, edx", step_i386, {0x39, 0xD0}, {}},
      {"mov dh, al", step_i386, {0x88, 0xC6}, {2}},
      {"mov ch, [eax]", step_i386, {0x8A, 0x28}, {1}},
      {"and edi, -16", step_i386, {0x83, 0xE7, 0xF0}, {7}},
      {"inc ebx", step_i386, {0x43}, {3}},
      {"xchg ebx, eax", step_i386, {0x93}, {0, 3}},
      {"call", step_i386, {0xE8, 0, 1, 0, 0}, {0, 1, 2}},
      {"call [ebx]", step_i386, {0xFF, 0x13}, {0, 1, 2}},
      {"int 0x80", step_i386, {0xCD, 0x80}, {0}},
      {"leave", step_i386, {0xC9}, {5}},
      {"mul ecx", step_i386, {0xF7, 0xE1}, {0, 2}},
      {"not edi", step_i386, {0xF7, 0xD7}, {7}},
      {"test ecx, 1", step_i386, {0xF7, 0xC1, 1, 0, 0, 0}, {}},
      {"imul esi, eax, 3", step_i386, {0x6B, 0xF0, 0x03}, {6}},
      {"shl edx, 3", step_i386, {0xC1, 0xE2, 0x03}, {2}},
      {"cdq", step_i386, {0x99}, {2}},
      {"rep movsd", step_i386, {0xF3, 0xA5}, {1, 6, 7}},
      {"popa", step_i386, {0x61}, {0, 1, 2, 3, 5, 6, 7}},
      {"setne bl", step_i386, {0x0F, 0x95, 0xC3}, {3}},
      {"cmove esi, eax", step_i386, {0x0F, 0x44, 0xF0}, {6}},
      {"bswap eax", step_i386, {0x0F, 0xC8}, {0}},
      {"cpuid", step_i386, {0x0F, 0xA2}, {0, 1, 2, 3}},
      {"bl", step_thumb, {0x00, 0xF0, 0x02, 0xF8}, {0, 1, 2, 3, 12, 14}},
      {"movs r3, #1", step_thumb, {0x01, 0x23}, {3}},
      {"adds r0, r1, r2", step_thumb, {0x88, 0x18}, {0}},
      {"ldr r4, [r0]", step_thumb, {0x04, 0x68}, {4}},
      {"cmp r0, #1", step_thumb, {0x01, 0x28}, {}},
      {"pop {r5}", step_thumb, {0x20, 0xBC}, {5}},
      {"ldmia r0!, {r1, r2}", step_thumb, {0x06, 0xC8}, {0, 1, 2}},
      {"dec bh", step_i386, {0xFE, 0xCF}, {3}},
      {"vmov r3, s0", step_thumb, {0x10, 0xEE, 0x10, 0x3A}, {3}},
      {"vmov s0, r3", step_thumb, {0x00, 0xEE, 0x10, 0x3A}, {}},
      {"tst.w r1, #1", step_thumb, {0x11, 0xF0, 0x01, 0x0F}, {}},
      {"teq.w r0, #1", step_thumb, {0x90, 0xF0, 0x01, 0x0F}, {}},
      {"cmn.w r0, #1", step_thumb, {0x10, 0xF1, 0x01, 0x0F}, {}},
      {"cmp.w r9, #1", step_thumb, {0xB9, 0xF1, 0x01, 0x0F}, {}},
      {"add.w r8, r1, #1", step_thumb, {0x01, 0xF1, 0x01, 0x08}, {8}},
      {"bl", step_arm, {0, 0, 0, 0xEB}, {0, 1, 2, 3, 12, 14}},
      {"mov r4, r5", step_arm, {0x05, 0x40, 0xA0, 0xE1}, {4}},
      {"cmp r0, #1", step_arm, {0x01, 0x00, 0x50, 0xE3}, {}},
      {"ldr r6, [r0]", step_arm, {0x00, 0x60, 0x90, 0xE5}, {6}},
      {"str r0, [r1], #4", step_arm, {0x04, 0x00, 0x81, 0xE4}, {1}},
      {"umull r1, r2, r3, r4", step_arm, {0x93, 0x14, 0x82, 0xE0}, {1, 2}},
      {"ldrd r4, r5, [r0]", step_arm, {0xD0, 0x40, 0xC0, 0xE1}, {4, 5}},
      {"ldm r0!, {r1, r2}", step_arm, {0x06, 0x00, 0xB0, 0xE8}, {0, 1, 2}},
      {"mrc p15, 0, r3, c13, c0, 3", step_arm, {0x70, 0x3F, 0x1D, 0xEE}, {3}},
  };
  for (const auto& each : cases) EXPECT_EQ(overwritten(each.step, each.code), each.registers) << each.what;
}

TEST(Code, KeepsWhatTwoWaysAgreeIn) {
  StackState one = StackState::at_function_start(true), other = one;
  const std::vector<uint8_t> push = {0x90, 0xB5}, grow = {0x85, 0xB0};  // push {r4, r7, lr}; sub sp, #20
  step_thumb({0, push}, one);
  step_thumb({0, push}, other);
  EXPECT_FALSE(one.join(other));
  step_thumb({0, grow}, other);
  EXPECT_TRUE(one.join(other));
  EXPECT_FALSE(one.rule(true));
}

}  // namespace
}  // namespace quarl::frames
