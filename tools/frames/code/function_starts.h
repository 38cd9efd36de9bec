// SPDX-License-Identifier: Apache-2.0
// Where functions begin, as far as the file says it: symbols, unwind information, pointers, the entry point.
#pragma once

#include <cstdint>
#include <vector>

#include "frames/elf/elf_module.h"

namespace quarl::frames {

struct FunctionStart {
  uint32_t address;
  bool thumb;
};

// ARM: whether the instruction saves the return address, as a function does once.
bool saves_return(const ElfModule& module, uint32_t address, bool thumb);

// ARM: whether it saves that, or those of r0 to r3 that may hold arguments of unknown number, which comes first.
bool saves_on_entry(const ElfModule& module, uint32_t address, bool thumb);

// Whether this is Thumb code that saves the return address within its first instructions.
bool begins_by_saving(const ElfModule& module, uint32_t address);

std::vector<FunctionStart> function_starts(const ElfModule& module);

}  // namespace quarl::frames
