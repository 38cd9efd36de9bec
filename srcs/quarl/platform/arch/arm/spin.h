// Waiting in a loop for another processor.
#pragma once

namespace quarl {

// No YIELD: the oldest processors of the target do not know it, and to the others it mostly is a no-operation.
inline void relax() {
  __asm__ volatile("" ::: "memory");
}

}  // namespace quarl
