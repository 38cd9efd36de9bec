// SPDX-License-Identifier: Apache-2.0
// Steps from frame to frame of i686 code that no table is needed for.
#pragma once

#include <elf.h>

#include "platform/arch/i686/frame.h"
#include "platform/registers.h"

namespace quarl::frame {

inline constexpr uint16_t kElfMachine = EM_386;
inline constexpr bool kHasR11 = false;
inline constexpr uint32_t kThumbBit = 0;

// To the caller of a frame whose frame pointer is set up. False when that cannot be one; `high` ends the stack.
inline bool leave_by_pointer(Registers* in, uint32_t high, bool /*own*/) {
  const uint32_t fp = in->frame;
  if (fp % 4 != 0 || fp < in->sp || fp > high - kEnd) return false;
  *in = {return_address(fp), fp + kEnd, static_cast<uint32_t>(caller_frame(fp)), 0, 0, false};
  return true;
}

// Registers in the caller of the function with this frame.
[[gnu::always_inline]] inline bool leave_own_frames(uint32_t fp, Registers* in, uint32_t high) {
  *in = {0, fp, fp, 0, 0, false};
  return leave_by_pointer(in, high, true);
}

// The kernel's code for system calls and signals, as it lies in every process. `code` are the 8 bytes at pc.
inline KnownCode known_code(uint32_t /*pc*/, const uint8_t* code) {
  const auto is = [=](auto... bytes) {
    int i = 0;
    return ((code[i++] == bytes) && ...);
  };
  if (is(0x58, 0xB8, 0x77, 0, 0, 0, 0xCD, 0x80)) return KnownCode::kSignalReturn;  // pop eax; mov eax, 119; int 0x80
  if (is(0xB8, 0xAD, 0, 0, 0, 0xCD, 0x80)) return KnownCode::kRtSignalReturn;      // mov eax, 173; int 0x80
  if (is(0x5D, 0x5A, 0x59, 0xC3)) return KnownCode::kSystemCall;                   // pop ebp; pop edx; pop ecx; ret
  if (is(0xCD, 0x80, 0x5D, 0x5A, 0x59, 0xC3)) return KnownCode::kSystemCall;       // to be begun again behind a handler
  return KnownCode::kNone;
}

inline bool leave_system_call(Registers* in, uint32_t high) {
  if (in->sp > high - 16) return false;
  *in = {word_at(in->sp + 12), in->sp + 16, word_at(in->sp), 0, 0, false};
  return true;
}

// The kernel's frame begins with the return address (popped) and the signal number; then the registers, or siginfo (128
// bytes behind two pointers) and in the ucontext the registers.
inline bool leave_signal_frame(Registers* in, uint32_t high, bool rt) {
  constexpr uint32_t kEbp = 24, kEsp = 28, kEip = 56;
  const uint32_t saved = in->sp + (rt ? 12 + 128 + 20 : 4);
  if (saved > high - kEip - 4) return false;
  *in = {word_at(saved + kEip), word_at(saved + kEsp), word_at(saved + kEbp), 0, 0, true};
  return in->sp > saved && in->sp <= high && in->sp % 4 == 0;
}

}  // namespace quarl::frame
