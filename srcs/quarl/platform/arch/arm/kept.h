// SPDX-License-Identifier: Apache-2.0
// The addresses of this library's own variables.
#pragma once

namespace quarl {

// The variable, by an address that stays in a register: of position-independent code the compiler makes it anew, from
// two words, each time.
template <typename T>
[[gnu::always_inline]] inline T& kept(T& variable) {
  T* there = &variable;
  __asm__("" : "+r"(there));
  return *there;
}

}  // namespace quarl
