// SPDX-License-Identifier: Apache-2.0
// Steps from frame to frame of ARM code that no table is needed for.
#pragma once

#include <elf.h>

#include "platform/arch/arm/frame.h"
#include "platform/code_map.h"
#include "platform/registers.h"

namespace quarl::frame {

inline constexpr uint16_t kElfMachine = EM_ARM;
inline constexpr bool kHasR11 = true;
inline constexpr uint32_t kThumbBit = 1;

// The caller's r7. The program counter that a function saved on entry leads to the instruction that pushed the frame:
// stmfd sp!, {..., fp, ip, lr, pc}, 8 bytes (some processors: 12) before it. Another function has not saved r7.
inline uint32_t r7_of_caller(uint32_t fp, uint32_t r7, bool own) {
  constexpr uint32_t kPush = 0xE92DD800;
  constexpr uint32_t kRegistersBelowFp = 0x7FF;
  for (uint32_t ahead = 8; ahead <= 12; ahead += 4) {
    const uint32_t at = word_at(fp) - ahead;
    if (at % 4 != 0 || (!own && !is_startup_code(at))) return r7;
    const uint32_t instruction = word_at(at);
    if ((instruction & ~kRegistersBelowFp) != kPush) continue;
    // fp, ip, lr and pc are; the processors have no instruction that counts bits.
    const uint32_t above_r7 = 4 + (instruction >> 8 & 1) + (instruction >> 9 & 1) + (instruction >> 10 & 1);
    return (instruction & 1 << 7) != 0 ? word_at(fp - 4 * above_r7) : r7;
  }
  return r7;
}

// To the caller of a frame whose frame pointer is set up, or of a routine without a frame that pushed {sl, lr}. False
// when that cannot be one; `high` ends the stack. `own`: a function of this library, whose code may be read.
inline bool leave_by_pointer(Registers* in, uint32_t high, bool own) {
  if ((own || is_startup_code(in->pc)) && in->pc != 0 && returns_without_frame(in->pc)) {
    if (in->sp > high - 8) return false;
    *in = {word_at(in->sp + 4), in->sp + 8, in->frame, in->r11, 0, false};
    return true;
  }
  const uint32_t fp = in->r11;
  if (fp % 4 != 0 || fp < in->sp - kLowestWord || fp > high - kEnd) return false;
  const uint32_t saved_sp = word_at(fp - 8);
  const uint32_t sp = saved_sp > fp && saved_sp <= high && saved_sp % 4 == 0 ? saved_sp : fp + 4;
  *in = {return_address(fp), sp, r7_of_caller(fp, in->frame, own), static_cast<uint32_t>(caller_frame(fp)), 0, false};
  return true;
}

// Registers in the caller of the function with this frame, which has called the one that this is inlined into, by way
// of others of this library. r7 is what it is here, or where the first of them that has changed it saved it.
[[gnu::always_inline]] inline bool leave_own_frames(uint32_t fp, Registers* in, uint32_t high) {
  uint32_t r7 = 0;
  asm volatile("mov %0, r7" : "=r"(r7));
  auto own = reinterpret_cast<uint32_t>(__builtin_frame_address(0));
  for (; own < fp; own = static_cast<uint32_t>(caller_frame(own))) r7 = r7_of_caller(own, r7, true);
  *in = {0, fp + kLowestWord, r7, fp, 0, false};
  return leave_by_pointer(in, high, true);
}

// `code` are the 8 bytes at pc without the Thumb bit.
inline KnownCode known_code(uint32_t pc, const uint8_t* code) {
  if (pc >= 0xFFFF0000) return KnownCode::kSystemCall;  // the kernel's helpers, which have no frames
  const auto word = [=](int i) {
    return static_cast<uint32_t>(code[i]) | static_cast<uint32_t>(code[i + 1]) << 8 |
           static_cast<uint32_t>(code[i + 2]) << 16 | static_cast<uint32_t>(code[i + 3]) << 24;
  };
  const bool arm = word(4) == 0xEF000000;                // svc 0
  const bool short_thumb = word(0) >> 16 == 0xDF00;      // svc 0 behind movs r7, #n
  const bool long_thumb = (word(4) & 0xFFFF) == 0xDF00;  // behind mov.w r7, #n
  const auto sets = [&](uint32_t number) {
    return (arm && word(0) == (0xE3A07000 | number)) || (short_thumb && (word(0) & 0xFFFF) == (0x2700 | number)) ||
           (long_thumb && word(0) == (0x0700F04F | number << 16));
  };
  if (sets(119)) return KnownCode::kSignalReturn;
  if (sets(173)) return KnownCode::kRtSignalReturn;
  return KnownCode::kNone;
}

inline bool leave_system_call(Registers* in, uint32_t /*high*/) {
  if (in->link == 0) return false;
  *in = {in->link, in->sp, in->frame, in->r11, 0, false};
  return true;
}

// The kernel's frame: siginfo (128 bytes) of a handler that wants it, then the ucontext with the registers.
inline bool leave_signal_frame(Registers* in, uint32_t high, bool rt) {
  constexpr uint32_t kR0 = 20 + 12, kStatus = kR0 + 16 * 4, kThumbState = 1 << 5;
  const uint32_t saved = in->sp + (rt ? 128 : 0);
  if (saved > high - kStatus - 4) return false;
  const auto kept = [=](uint32_t r) { return word_at(saved + kR0 + 4 * r); };
  const uint32_t thumb = (word_at(saved + kStatus) & kThumbState) != 0 ? kThumbBit : 0;
  *in = {kept(15) | thumb, kept(13), kept(7), kept(11), kept(14), true};
  return in->sp > saved && in->sp <= high && in->sp % 4 == 0;
}

}  // namespace quarl::frame
