// SPDX-License-Identifier: Apache-2.0
#include "symbols/elf_image.h"

#include <cstring>

namespace quarl {
namespace {

const Elf32_Ehdr& header_of(const uint8_t* data) {
  return *reinterpret_cast<const Elf32_Ehdr*>(data);
}

constexpr unsigned char kHostOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;

bool word_aligned(size_t offset) {
  return offset % alignof(uint32_t) == 0;
}

}  // namespace

bool ElfImage::has_magic(const void* data, size_t size) {
  return size >= SELFMAG && memcmp(data, ELFMAG, SELFMAG) == 0;
}

const Elf32_Shdr* ElfImage::section(uint32_t index) const {
  const Elf32_Ehdr& header = header_of(data_);
  if (index >= header.e_shnum || !word_aligned(header.e_shoff)) return nullptr;
  const size_t offset = size_t{header.e_shoff} + size_t{index} * sizeof(Elf32_Shdr);
  return inside(offset, sizeof(Elf32_Shdr)) ? reinterpret_cast<const Elf32_Shdr*>(data_ + offset) : nullptr;
}

// True when the string at that offset, its NUL included, lies in the table and is `text`.
bool ElfImage::text_equals(const ElfSpan& strings, uint32_t offset, const char* text) const {
  const size_t length = strlen(text) + 1;
  if (offset > strings.size || length > strings.size - offset) return false;
  return memcmp(data_ + strings.offset + offset, text, length) == 0;
}

void ElfImage::take_section(const ElfSpan& names, const Elf32_Shdr& section) {
  const ElfSpan span{section.sh_offset, section.sh_size};
  if (section.sh_type == SHT_NOBITS || !inside(span.offset, span.size)) return;
  const uint32_t count = section.sh_entsize == sizeof(Elf32_Sym) ? section.sh_size / section.sh_entsize : 0;
  if (text_equals(names, section.sh_name, ".symtab") && word_aligned(span.offset)) {
    static_.symbols = span;
    static_.count = count;
  } else if (text_equals(names, section.sh_name, ".strtab")) {
    static_.strings = span;
  } else if (text_equals(names, section.sh_name, ".dynsym") && word_aligned(span.offset)) {
    dynamic_.symbols = span;
    dynamic_.count = count;
  } else if (text_equals(names, section.sh_name, ".dynstr")) {
    dynamic_.strings = span;
  }
}

bool ElfImage::parse(const void* data, size_t size) {
  *this = ElfImage{};
  data_ = static_cast<const uint8_t*>(data);
  size_ = size;
  if (size < sizeof(Elf32_Ehdr) || !has_magic(data, size)) return false;
  const Elf32_Ehdr& header = header_of(data_);
  if (header.e_ident[EI_CLASS] != ELFCLASS32 || header.e_ident[EI_DATA] != kHostOrder) return false;
  if (header.e_shoff != 0 && header.e_shnum != 0) return parse_sections();
  dynamic_ = dynamic_symbols(data_, size_);
  return true;
}

bool ElfImage::parse_sections() {
  const Elf32_Ehdr& header = header_of(data_);
  const Elf32_Shdr* names = section(header.e_shstrndx);
  if (names == nullptr || !inside(names->sh_offset, names->sh_size)) return false;
  const ElfSpan name_strings{names->sh_offset, names->sh_size};
  for (uint32_t i = 0; i < header.e_shnum; ++i) {
    const Elf32_Shdr* each = section(i);
    if (each == nullptr) return false;
    take_section(name_strings, *each);
  }
  return true;
}

const Elf32_Sym* ElfImage::search(const ElfSymbols& table, const char* name) const {
  const auto* symbols = reinterpret_cast<const Elf32_Sym*>(data_ + table.symbols.offset);
  for (uint32_t i = 0; i < table.count; ++i) {
    if (text_equals(table.strings, symbols[i].st_name, name)) return &symbols[i];
  }
  return nullptr;
}

const Elf32_Sym* ElfImage::find(const char* name) const {
  const Elf32_Sym* found = search(static_, name);
  if (found != nullptr && found->st_value != 0) return found;
  return search(dynamic_, name);
}

}  // namespace quarl
