// Waiting in a loop for another processor.
#pragma once

namespace quarl {

// PAUSE, which processors before SSE2 take for a no-operation.
inline void relax() {
  __asm__ volatile("rep; nop" ::: "memory");
}

}  // namespace quarl
