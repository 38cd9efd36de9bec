// SPDX-License-Identifier: Apache-2.0
// What waiting for other processors, and exchanging words with them, takes.
#pragma once

namespace quarl {

// No YIELD: the oldest processors of the target do not know it, and to the others it mostly is a no-operation.
inline void relax() {
  __asm__ volatile("" ::: "memory");
}

// At the end of a signal handler that tried to swap a word and found another value there: the swap that it interrupted
// must not take that value for the one it has read itself. Kernels see to it whenever they return to a program,
// emulators of processors do not.
inline void forget_exclusive_access() {
#if __ARM_ARCH >= 7
  __asm__ volatile("clrex" ::: "memory");
#endif
}

}  // namespace quarl
