// SPDX-License-Identifier: Apache-2.0
// Is there a call before a return address? In code that is not what ran there mostly is none.
#pragma once

#include <cstdint>
#include <span>

namespace quarl::report {

enum class Instructions { kI386, kArm, kThumb };

// How many bytes before a return address tell.
inline constexpr size_t kLongestCall = 8;

// Whether the code ends with a call; `code` are up to kLongestCall bytes, little-endian. Too few of them say yes.
bool ends_with_call(std::span<const uint8_t> code, Instructions instructions);

}  // namespace quarl::report
