// SPDX-License-Identifier: Apache-2.0
// How the dynamic segment of a 32-bit ELF object leads to its symbols: for those who read it in a file that they do not
// trust, and for those who read it in the memory of the process. Pure; builds on any processor.
#pragma once

#include <elf.h>

#include <cstddef>
#include <cstdint>

namespace quarl {

// The entries of the segment, as they stand there; 0 where there is none.
struct DynamicEntries {
  uint32_t symbols = 0, strings = 0, strings_size = 0, hash = 0, gnu_hash = 0, versions = 0, name = 0;

  void take(const Elf32_Dyn& entry) {
    const uint32_t value = entry.d_un.d_val;
    if (entry.d_tag == DT_SYMTAB) symbols = value;
    if (entry.d_tag == DT_STRTAB) strings = value;
    if (entry.d_tag == DT_STRSZ) strings_size = value;
    if (entry.d_tag == DT_HASH) hash = value;
    if (entry.d_tag == DT_GNU_HASH) gnu_hash = value;
    if (entry.d_tag == DT_VERSYM) versions = value;
    if (entry.d_tag == DT_SONAME) name = value;
  }
};

// The hash table of the old kind: which of its words is the number of symbols.
inline constexpr size_t kHashCountWord = 1;

// The new kind, in words: this head; the filter; the buckets, each the first symbol of a chain; one for every hashed
// symbol, its hash but for the lowest bit, which is set at the end of a chain. The last chain ends the symbols.
struct GnuHashHead {
  uint32_t buckets;
  uint32_t first_hashed;
  uint32_t filter;
  uint32_t shift;

  size_t bucket_word(size_t bucket) const { return sizeof(GnuHashHead) / sizeof(uint32_t) + filter + bucket; }
  size_t symbol_word(uint32_t symbol) const { return bucket_word(buckets) + (symbol - first_hashed); }

  static bool ends_chain(uint32_t word) { return (word & 1) != 0; }
  static bool may_be(uint32_t word, uint32_t hash) { return (word | 1) == (hash | 1); }
};

inline uint32_t gnu_hash(const char* name) {
  uint32_t hash = 5381;
  for (; *name != '\0'; ++name) hash = hash * 33 + static_cast<unsigned char>(*name);
  return hash;
}

// Of a symbol's version: only who asks for this version by name gets the symbol.
inline constexpr uint16_t kHiddenVersion = 0x8000;

}  // namespace quarl
