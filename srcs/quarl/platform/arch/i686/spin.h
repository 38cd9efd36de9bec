// SPDX-License-Identifier: Apache-2.0
// What waiting for other processors, and exchanging words with them, takes.
#pragma once

namespace quarl {

// PAUSE, which processors before SSE2 take for a no-operation.
inline void relax() {
  __asm__ volatile("rep; nop" ::: "memory");
}

// A swap is one instruction: no handler can interrupt it.
inline void forget_exclusive_access() {}

}  // namespace quarl
