// SPDX-License-Identifier: Apache-2.0
// A table of unwind rules in memory, of which no byte is trusted before it was checked. Pure; builds on any processor.
#pragma once

#include "frames/table_format.h"

namespace quarl {

class FrameTable {
 public:
  enum Answer : uint8_t { kSound, kOtherVersion, kDamaged };

  // Looks at all of it once: the checksum, that every part lies in the file and every index in its part, that a rule
  // can be one of this machine. `data` is aligned to 4. The table is used where it lies when it is sound.
  Answer check(const void* data, size_t size, uint16_t machine);

  bool is_for(TableIdKind kind, const uint8_t* id, size_t size) const;

  // The rule that holds at an address of the ELF file; null: there is none. Reads only the table.
  const FrameRule* find(uint32_t address) const;

  const void* data() const { return header_; }
  uint32_t size() const { return header_->size; }  // bytes

 private:
  bool parts_fit() const;
  bool pages_fit() const;
  bool rows_fit() const;
  bool rules_fit(uint16_t machine) const;

  template <typename T>
  const T* part(uint32_t offset) const {
    return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(header_) + offset);
  }
  const uint32_t* pages() const { return part<uint32_t>(header_->pages_offset); }
  const TableRow* rows() const { return part<TableRow>(header_->rows_offset); }
  const FrameRule* rules() const { return part<FrameRule>(header_->rules_offset); }

  const TableHeader* header_ = nullptr;
};

}  // namespace quarl
