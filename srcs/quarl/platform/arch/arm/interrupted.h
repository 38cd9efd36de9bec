// SPDX-License-Identifier: Apache-2.0
// The context that a signal interrupted, and another stack to work on.
#pragma once

#include <ucontext.h>

#include "platform/address.h"
#include "platform/registers.h"

namespace quarl::frame {

inline Registers interrupted_registers(const ucontext_t& context) {
  constexpr uint32_t kThumbState = 1 << 5;
  const mcontext_t& kept = context.uc_mcontext;
  const uint32_t thumb = (kept.arm_cpsr & kThumbState) != 0 ? 1 : 0;
  return {static_cast<uint32_t>(kept.arm_pc) | thumb, static_cast<uint32_t>(kept.arm_sp),
          static_cast<uint32_t>(kept.arm_r7),         static_cast<uint32_t>(kept.arm_fp),
          static_cast<uint32_t>(kept.arm_lr),         true};
}

// To the call that led to where no code is.
inline bool leave_wild_jump(Registers* in, uint32_t /*low*/, uint32_t /*high*/) {
  *in = {in->link, in->sp, in->frame, in->r11, 0, false};
  return true;
}

// Calls the function with the stack pointer there, a multiple of 16.
inline void call_on_stack(uint32_t top, void (*function)()) {
  __asm__ volatile(
      "mov r4, sp\n\t"
      "mov sp, %0\n\t"
      "blx %1\n\t"
      "mov sp, r4"
      :
      : "r"(top), "r"(function)
      : "r0", "r1", "r2", "r3", "r4", "ip", "lr", "memory", "cc");
}

}  // namespace quarl::frame
