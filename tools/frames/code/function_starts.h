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

std::vector<FunctionStart> function_starts(const ElfModule& module);

}  // namespace quarl::frames
