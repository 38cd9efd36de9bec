// SPDX-License-Identifier: Apache-2.0
// What the agent's client sends: packets of one size, each a line of configuration that ends in NUL.
#pragma once

namespace quarl {

inline constexpr int kPacketSize = 32;  // bytes, NUL included

}  // namespace quarl
