// SPDX-License-Identifier: Apache-2.0
// What each address of a module's code is known to be: the start of an instruction, of a block, of a function, or data.
#pragma once

#include <cstdint>
#include <vector>

#include "frames/elf/elf_module.h"

namespace quarl::frames {

class CodeMap {
 public:
  enum Flag : uint8_t {
    kInstruction = 1,  // one starts here
    kInside = 2,       // one covers this
    kBlock = 4,        // a branch leads here
    kFunction = 8,     // so does a call, a symbol, a pointer
    kData = 16,
    kThumb = 32,
    kKnownThumb = 64,  // a symbol tells the instruction set
    kKnownArm = 128,
  };

  explicit CodeMap(const ElfModule& module);

  bool has(uint32_t address, uint8_t flags) const { return in(address) && (flags_[address - start_] & flags) != 0; }
  void add(uint32_t address, uint8_t flags) {
    if (in(address)) flags_[address - start_] |= flags;
  }
  void add_range(uint32_t address, uint32_t size, uint8_t flags) {
    for (uint32_t at = 0; at < size; ++at) add(address + at, flags);
  }
  bool in(uint32_t address) const { return address - start_ < flags_.size(); }
  bool visited(uint32_t address) const { return has(address, kInstruction | kInside); }
  uint32_t start() const { return start_; }
  uint32_t end() const { return start_ + static_cast<uint32_t>(flags_.size()); }

 private:
  uint32_t start_;
  std::vector<uint8_t> flags_;
};

}  // namespace quarl::frames
