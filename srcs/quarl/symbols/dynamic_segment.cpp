// SPDX-License-Identifier: Apache-2.0
#include "symbols/dynamic_segment.h"

#include <elf.h>

#include <cstring>

#include "platform/elf_dynamic.h"

namespace quarl {
namespace {

class Image {
 public:
  Image(const uint8_t* data, size_t size) : data_(data), size_(size) { read(0, &header_); }

  template <typename T>
  bool read(size_t offset, T* out) const {
    if (offset > size_ || sizeof(T) > size_ - offset) return false;
    memcpy(out, data_ + offset, sizeof(T));
    return true;
  }

  // The first segment of that type that `fits`.
  template <typename Fits>
  bool find_segment(uint32_t type, Elf32_Phdr* out, Fits fits) const {
    for (size_t i = 0; i < header_.e_phnum && header_.e_phentsize == sizeof *out; ++i) {
      if (!read(header_.e_phoff + i * sizeof *out, out)) return false;
      if (out->p_type == type && fits(*out)) return true;
    }
    return false;
  }

  // Where in the image lies what is loaded at that link-time address, and how much of its segment is left there.
  ElfSpan loaded_at(uint32_t address) const {
    Elf32_Phdr segment;
    const auto holds = [=](const Elf32_Phdr& each) { return address - each.p_vaddr < each.p_filesz; };
    if (!find_segment(PT_LOAD, &segment, holds)) return {};
    const size_t into = address - segment.p_vaddr;
    const size_t offset = size_t{segment.p_offset} + into;
    if (offset < into || offset >= size_) return {};
    const size_t left = segment.p_filesz - into;
    return {offset, left < size_ - offset ? left : size_ - offset};
  }

 private:
  const uint8_t* data_;
  size_t size_;
  Elf32_Ehdr header_{};
};

DynamicEntries read_entries(const Image& image) {
  DynamicEntries entries;
  Elf32_Phdr segment;
  if (!image.find_segment(PT_DYNAMIC, &segment, [](const Elf32_Phdr&) { return true; })) return entries;
  Elf32_Dyn entry;
  for (size_t at = 0; at + sizeof entry <= segment.p_filesz; at += sizeof entry) {
    if (!image.read(segment.p_offset + at, &entry) || entry.d_tag == DT_NULL) break;
    entries.take(entry);
  }
  return entries;
}

constexpr size_t kWord = sizeof(uint32_t);

uint32_t count_by_hash(const Image& image, const ElfSpan& table) {
  uint32_t count = 0;
  const size_t at = kHashCountWord * kWord;
  return table.size >= at + kWord && image.read(table.offset + at, &count) ? count : 0;
}

uint32_t count_by_gnu_hash(const Image& image, const ElfSpan& table) {
  GnuHashHead head;
  if (table.size == 0 || !image.read(table.offset, &head)) return 0;
  if (head.buckets > table.size || head.filter > table.size) return 0;
  uint32_t word = 0;
  const auto read = [&](size_t index) { return image.read(table.offset + index * kWord, &word); };
  uint32_t last = 0;
  for (size_t i = 0; i < head.buckets && read(head.bucket_word(i)); ++i) last = word > last ? word : last;
  if (last < head.first_hashed) return head.first_hashed;
  while (last - head.first_hashed <= table.size && read(head.symbol_word(last))) {
    ++last;
    if (GnuHashHead::ends_chain(word)) return last;
  }
  return 0;
}

}  // namespace

ElfSymbols dynamic_symbols(const uint8_t* data, size_t size) {
  const Image image(data, size);
  const DynamicEntries entries = read_entries(image);
  ElfSymbols found;
  found.symbols = image.loaded_at(entries.symbols);
  found.strings = image.loaded_at(entries.strings);
  if (entries.strings_size < found.strings.size) found.strings.size = entries.strings_size;
  found.count = entries.hash != 0 ? count_by_hash(image, image.loaded_at(entries.hash))
                                  : count_by_gnu_hash(image, image.loaded_at(entries.gnu_hash));
  const bool aligned = found.symbols.offset % alignof(Elf32_Sym) == 0;
  const size_t room = aligned ? found.symbols.size / sizeof(Elf32_Sym) : 0;
  if (found.count > room) found.count = static_cast<uint32_t>(room);
  return found;
}

}  // namespace quarl
