// The symbol tables of a 32-bit ELF file image, of which no byte is trusted: nothing outside the image is ever read.
// Pure; builds on any processor.
#pragma once

#include <elf.h>

#include <cstddef>
#include <cstdint>

namespace quarl {

class ElfImage {
 public:
  // False for what is no 32-bit ELF file in this processor's byte order with a section table inside it.
  bool parse(const void* data, size_t size);

  // The first symbol of that name in .symtab, or, when there is none or its value is 0, in .dynsym. Null when unknown.
  const Elf32_Sym* find(const char* name) const;

  static bool has_magic(const void* data, size_t size);

 private:
  struct Span {
    size_t offset = 0;
    size_t size = 0;
  };
  struct SymbolTable {
    Span symbols;
    Span strings;
    uint32_t count = 0;
  };

  bool inside(size_t offset, size_t size) const { return offset <= size_ && size <= size_ - offset; }
  const Elf32_Shdr* section(uint32_t index) const;
  bool text_equals(const Span& strings, uint32_t offset, const char* text) const;
  void take_section(const Span& names, const Elf32_Shdr& section);
  const Elf32_Sym* search(const SymbolTable& table, const char* name) const;

  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
  SymbolTable static_;
  SymbolTable dynamic_;
};

}  // namespace quarl
