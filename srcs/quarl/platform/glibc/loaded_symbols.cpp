// SPDX-License-Identifier: Apache-2.0
#include "platform/glibc/loaded_symbols.h"

#include <elf.h>
#include <link.h>
#include <string.h>

#include "platform/address.h"
#include "platform/elf_dynamic.h"

extern r_debug _r_debug __attribute__((weak));  // the loader's, which the library is not linked with

namespace quarl::glibc {
namespace {

constexpr const char* kLibcName = "libc.so.6";

// The tables of a loaded object.
class LoadedObject {
 public:
  explicit LoadedObject(const dl_phdr_info& info) : base_(info.dlpi_addr) {
    for (int i = 0; i < info.dlpi_phnum; ++i) {
      if (info.dlpi_phdr[i].p_type == PT_DYNAMIC) read(info.dlpi_phdr[i].p_vaddr + base_);
    }
  }
  explicit LoadedObject(const link_map& object) : base_(object.l_addr) { read(address_of(object.l_ld)); }

  bool ours() const { return dynamic_ == _DYNAMIC; }
  bool named(const char* soname) const {
    return entries_.strings != 0 && entries_.name != 0 && strcmp(text(entries_.name), soname) == 0;
  }

  // Null when the object does not define the name. Of several versions the default one; a hidden one alone is what
  // calls of that version reach.
  void* find(const char* name) const {
    if (entries_.symbols == 0 || entries_.strings == 0) return nullptr;
    return entries_.gnu_hash != 0 ? find_by_gnu_hash(name) : find_by_count(name);
  }

 private:
  void read(Elf32_Addr dynamic) {
    dynamic_ = reinterpret_cast<const Elf32_Dyn*>(dynamic);
    for (const Elf32_Dyn* entry = dynamic_; entry->d_tag != DT_NULL; ++entry) entries_.take(*entry);
  }

  // The loader has made these addresses absolute, but for objects that it cannot write to.
  template <typename T>
  const T* table(uint32_t address) const {
    return reinterpret_cast<const T*>(address < base_ ? address + base_ : address);
  }
  const char* text(uint32_t offset) const { return table<char>(entries_.strings) + offset; }
  const Elf32_Sym& symbol(uint32_t index) const { return table<Elf32_Sym>(entries_.symbols)[index]; }

  bool hidden(uint32_t index) const {
    return entries_.versions != 0 && (table<uint16_t>(entries_.versions)[index] & kHiddenVersion) != 0;
  }
  bool defines(uint32_t index, const char* name) const {
    const Elf32_Sym& each = symbol(index);
    const auto type = ELF32_ST_TYPE(each.st_info);
    return each.st_shndx != SHN_UNDEF && (type == STT_FUNC || type == STT_OBJECT) &&
           strcmp(text(each.st_name), name) == 0;
  }
  uint32_t better(uint32_t found, uint32_t other) const { return found == 0 || hidden(found) ? other : found; }

  // Symbol 0 is none.
  void* address_of_symbol(uint32_t index) const {
    return index != 0 ? reinterpret_cast<void*>(base_ + symbol(index).st_value) : nullptr;
  }

  void* find_by_gnu_hash(const char* name) const {
    const auto* words = table<uint32_t>(entries_.gnu_hash);
    const auto& head = *table<GnuHashHead>(entries_.gnu_hash);
    const uint32_t hash = gnu_hash(name);
    uint32_t index = head.buckets != 0 ? words[head.bucket_word(hash % head.buckets)] : 0;
    if (index < head.first_hashed) return nullptr;
    uint32_t found = 0;
    for (;; ++index) {
      const uint32_t word = words[head.symbol_word(index)];
      if (GnuHashHead::may_be(word, hash) && defines(index, name)) found = better(found, index);
      if (GnuHashHead::ends_chain(word)) return address_of_symbol(found);
    }
  }

  void* find_by_count(const char* name) const {
    const uint32_t count = entries_.hash != 0 ? table<uint32_t>(entries_.hash)[kHashCountWord] : 0;
    uint32_t found = 0;
    for (uint32_t index = 1; index < count; ++index) {
      if (defines(index, name)) found = better(found, index);
    }
    return address_of_symbol(found);
  }

  Elf32_Addr base_;
  const Elf32_Dyn* dynamic_ = nullptr;
  DynamicEntries entries_;
};

// Whose definitions count.
enum class Whose { kAnybodys, kBehindOurs, kOurs, kLibcs };

// What is looked for, and what was found so far. The objects come in the order in which names are looked up.
struct Search {
  const char* name;
  Whose whose;
  bool past_us = false;
  FoundFunction found{};

  bool counts(const LoadedObject& object) const {
    switch (whose) {
      case Whose::kAnybodys:
        return true;
      case Whose::kBehindOurs:
        return past_us;
      case Whose::kOurs:
        return object.ours();
      case Whose::kLibcs:
        return object.named(kLibcName);
    }
    return false;
  }
};

int look(dl_phdr_info* info, size_t, void* data) {
  auto* search = static_cast<Search*>(data);
  const LoadedObject object(*info);
  const bool counts = search->counts(object);
  if (object.ours()) search->past_us = true;
  if (counts) search->found = {object.find(search->name), object.ours()};
  const bool nowhere_else = object.ours() && search->whose == Whose::kOurs;
  return search->found.address != nullptr || nowhere_else ? 1 : 0;
}

// Somebody may stand in front of the C library here, too, and look for it by way of our dlsym. Its own is found in the
// loader's list, which is read when the process begins and not locked.
using Iterate = decltype(&dl_iterate_phdr);

Iterate libc_iterate() {
  for (const link_map* each = &_r_debug != nullptr ? _r_debug.r_map : nullptr; each != nullptr; each = each->l_next) {
    const LoadedObject object(*each);
    if (object.named(kLibcName)) return reinterpret_cast<Iterate>(object.find("dl_iterate_phdr"));
  }
  return nullptr;
}

Iterate iterate() {
  static constinit Iterate found = nullptr;
  Iterate known = __atomic_load_n(&found, __ATOMIC_ACQUIRE);
  if (known != nullptr) return known;
  known = libc_iterate();
  if (known == nullptr) known = dl_iterate_phdr;
  __atomic_store_n(&found, known, __ATOMIC_RELEASE);
  return known;
}

FoundFunction run(const char* name, Whose whose) {
  Search search{name, whose};
  iterate()(look, &search);
  return search.found.address != nullptr ? search.found : FoundFunction{};
}

}  // namespace

FoundFunction first_function(const char* name) {
  return run(name, Whose::kAnybodys);
}

void* next_function(const char* name) {
  return run(name, Whose::kBehindOurs).address;
}

void* own_function(const char* name) {
  return run(name, Whose::kOurs).address;
}

void* libc_symbol(const char* name) {
  return run(name, Whose::kLibcs).address;
}

}  // namespace quarl::glibc
