// SPDX-License-Identifier: Apache-2.0
// The context that a signal interrupted, and another stack to work on.
#pragma once

#include <ucontext.h>

#include "platform/address.h"
#include "platform/registers.h"

namespace quarl::frame {

inline Registers interrupted_registers(const ucontext_t& context) {
  const auto& kept = context.uc_mcontext.gregs;
  return {static_cast<uint32_t>(kept[REG_EIP]),
          static_cast<uint32_t>(kept[REG_ESP]),
          static_cast<uint32_t>(kept[REG_EBP]),
          0,
          0,
          true};
}

// To the call that led to where no code is: its return address is on top of the stack.
inline bool leave_wild_jump(Registers* in, uint32_t low, uint32_t high) {
  if (in->sp < low || in->sp > high - 4) return false;
  *in = {word_at(in->sp), in->sp + 4, in->frame, 0, 0, false};
  return true;
}

// Calls the function with the stack pointer there, a multiple of 16.
inline void call_on_stack(uint32_t top, void (*function)()) {
  __asm__ volatile(
      "movl %%esp, %%esi\n\t"
      "movl %0, %%esp\n\t"
      "call *%1\n\t"
      "movl %%esi, %%esp"
      : "+d"(top), "+c"(function)
      :
      : "eax", "esi", "memory", "cc");
}

}  // namespace quarl::frame
