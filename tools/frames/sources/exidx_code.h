// SPDX-License-Identifier: Apache-2.0
// The unwinding instructions of .ARM.exidx and .ARM.extab: bytes in, a rule out.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "quarl/frames/table_format.h"

namespace quarl::frames {

// The rule for a call in a function whose instructions these are. Nothing when they refuse to unwind, are none that are
// known, or move the stack in a way that FrameRule has no words for.
std::optional<FrameRule> run_exidx(std::span<const uint8_t> instructions);

}  // namespace quarl::frames
