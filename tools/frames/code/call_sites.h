// SPDX-License-Identifier: Apache-2.0
// The calls of a module, and what is known of the stack at each by following the code.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "frames/code/code_reach.h"

namespace quarl::frames {

struct CallSite {
  uint32_t address;         // of the call
  uint32_t return_address;  // behind it, without the Thumb bit
  bool system_call = false;
  std::optional<StackState> state;  // nothing where the code gives none that can be trusted
};

// By address.
std::vector<CallSite> find_calls(const ElfModule& module);

}  // namespace quarl::frames
