// SPDX-License-Identifier: Apache-2.0
// Loaded objects by address, each with its table.
#pragma once

#include "frames/loaded_object.h"
#include "frames/table.h"

namespace quarl {

struct Module {
  uint32_t low;
  uint32_t high;  // [low, high): the pages of its code
  uint32_t bias;  // less this, an address is one of the ELF file
  const FrameTable* table;
};

class ModuleList {
 public:
  // In rising order of their addresses. A full list takes no more.
  void add(const Module& module);
  void clear() { count_ = 0; }

  // Null: none has code there.
  Module* find(uint32_t address);
  Module* begin() { return modules_; }
  Module* end() { return modules_ + count_; }

 private:
  static constexpr uint32_t kMax = 256;
  Module modules_[kMax]{};
  uint32_t count_ = 0;
};

// Adds the objects that are mapped now, as the kernel lists them, with their tables. `taken`: those that are left out;
// null: the process starts, and all that is there stays. Reads /proc/self/maps.
void learn_modules(MemoryCopier copy, ModuleList* taken, ModuleList* list);

}  // namespace quarl
