// SPDX-License-Identifier: Apache-2.0
// Tables of cases behind the ARM instructions that jump through them.
#pragma once

#include <cstdint>
#include <vector>

#include "frames/code/step.h"

namespace quarl::frames {

struct JumpTable {
  uint32_t address = 0, size = 0;  // of the data, 0 when it is made of branches
  std::vector<uint32_t> targets;
};

// The table of the jump at `code`, as far as it is of a known form. `before`: the code in front of it, which compares
// the number of the case with the largest one, in `state` when that is in a register.
JumpTable jump_table(const CodeAt& code, std::span<const uint8_t> before, bool thumb, const StackState& state);

}  // namespace quarl::frames
