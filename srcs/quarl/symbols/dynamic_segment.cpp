#include "symbols/dynamic_segment.h"

#include <elf.h>

#include <cstring>

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

// The entries of the dynamic segment that lead to symbols; 0 where there is none.
struct Entries {
  uint32_t symbols = 0, strings = 0, strings_size = 0, hash = 0, gnu_hash = 0;

  void take(const Elf32_Dyn& entry) {
    const uint32_t value = entry.d_un.d_val;
    if (entry.d_tag == DT_SYMTAB) symbols = value;
    if (entry.d_tag == DT_STRTAB) strings = value;
    if (entry.d_tag == DT_STRSZ) strings_size = value;
    if (entry.d_tag == DT_HASH) hash = value;
    if (entry.d_tag == DT_GNU_HASH) gnu_hash = value;
  }
};

Entries read_entries(const Image& image) {
  Entries entries;
  Elf32_Phdr segment;
  if (!image.find_segment(PT_DYNAMIC, &segment, [](const Elf32_Phdr&) { return true; })) return entries;
  Elf32_Dyn entry;
  for (size_t at = 0; at + sizeof entry <= segment.p_filesz; at += sizeof entry) {
    if (!image.read(segment.p_offset + at, &entry) || entry.d_tag == DT_NULL) break;
    entries.take(entry);
  }
  return entries;
}

// Of a hash table of the old kind: its second word.
uint32_t count_by_hash(const Image& image, const ElfSpan& table) {
  uint32_t count = 0;
  return table.size >= 2 * sizeof count && image.read(table.offset + sizeof count, &count) ? count : 0;
}

// Of the new kind: words for buckets, first hashed symbol, filter and shift; the filter; the buckets, each the first
// symbol of a chain; a word for every hashed symbol, odd at the end of a chain. The last chain ends the symbols.
uint32_t count_by_gnu_hash(const Image& image, const ElfSpan& table) {
  constexpr size_t kWord = sizeof(uint32_t);
  uint32_t head[4] = {};
  if (table.size == 0 || !image.read(table.offset, &head)) return 0;
  const auto [buckets, first_hashed, filter, shift] = head;
  if (buckets > table.size || filter > table.size) return 0;
  const size_t bucket_start = table.offset + (4 + size_t{filter}) * kWord;
  const size_t chain_start = bucket_start + size_t{buckets} * kWord;
  uint32_t last = 0;
  uint32_t word = 0;
  for (size_t i = 0; i < buckets && image.read(bucket_start + i * kWord, &word); ++i) last = word > last ? word : last;
  if (last < first_hashed) return first_hashed;
  while (last - first_hashed <= table.size && image.read(chain_start + size_t{last - first_hashed} * kWord, &word)) {
    ++last;
    if ((word & 1) != 0) return last;
  }
  return 0;
}

}  // namespace

ElfSymbols dynamic_symbols(const uint8_t* data, size_t size) {
  const Image image(data, size);
  const Entries entries = read_entries(image);
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
