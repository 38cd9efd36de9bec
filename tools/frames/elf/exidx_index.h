// SPDX-License-Identifier: Apache-2.0
// The index of .ARM.exidx: functions by address, and the bytes of their unwinding instructions.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "frames/elf/elf_module.h"

namespace quarl::frames {

class ExidxIndex {
 public:
  explicit ExidxIndex(const ElfModule& module);

  struct Function {
    uint32_t start;
    uint32_t entry;  // address of its two words
  };
  const std::vector<Function>& functions() const { return functions_; }  // by address
  // The function that `address` lies in; an entry holds up to the next one.
  const Function* find(uint32_t address) const;
  // Nothing when the function cannot be unwound, or the entry is damaged or of a personality that is not known.
  std::optional<std::vector<uint8_t>> instructions(const Function& function) const;

 private:
  const ElfModule& module_;
  std::vector<Function> functions_;
};

}  // namespace quarl::frames
