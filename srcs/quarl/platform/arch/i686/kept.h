// SPDX-License-Identifier: Apache-2.0
// The addresses of this library's own variables.
#pragma once

namespace quarl {

// The variable, by an address that stays in a register where it is dear to make. Here it is part of an instruction.
template <typename T>
constexpr T& kept(T& variable) {
  return variable;
}

}  // namespace quarl
