// SPDX-License-Identifier: Apache-2.0
// The symbol tables of a 32-bit ELF file image, of which no byte is trusted: nothing outside the image is ever read.
// Pure; builds on any processor.
#pragma once

#include <elf.h>

#include <cstddef>
#include <cstdint>

#include "symbols/dynamic_segment.h"

namespace quarl {

class ElfImage {
 public:
  // False for what is no 32-bit ELF file in this processor's byte order, and for one whose section table does not lie
  // inside it. Without a section table the symbols are those of the dynamic segment.
  bool parse(const void* data, size_t size);

  // The first symbol of that name in .symtab, or, when there is none or its value is 0, in .dynsym. Null when unknown.
  const Elf32_Sym* find(const char* name) const;

  static bool has_magic(const void* data, size_t size);

 private:
  bool inside(size_t offset, size_t size) const { return offset <= size_ && size <= size_ - offset; }
  bool parse_sections();
  const Elf32_Shdr* section(uint32_t index) const;
  bool text_equals(const ElfSpan& strings, uint32_t offset, const char* text) const;
  void take_section(const ElfSpan& names, const Elf32_Shdr& section);
  const Elf32_Sym* search(const ElfSymbols& table, const char* name) const;

  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
  ElfSymbols static_;
  ElfSymbols dynamic_;
};

}  // namespace quarl
