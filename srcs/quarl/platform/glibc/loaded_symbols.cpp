#include "platform/glibc/loaded_symbols.h"

#include <elf.h>
#include <link.h>
#include <string.h>

namespace quarl::glibc {
namespace {

constexpr const char* kLibcName = "libc.so.6";

uint32_t gnu_hash(const char* name) {
  uint32_t hash = 5381;
  for (; *name != '\0'; ++name) hash = hash * 33 + static_cast<unsigned char>(*name);
  return hash;
}

// The tables of a loaded object.
class LoadedObject {
 public:
  explicit LoadedObject(const dl_phdr_info& info) : base_(info.dlpi_addr) {
    for (int i = 0; i < info.dlpi_phnum; ++i) {
      if (info.dlpi_phdr[i].p_type == PT_DYNAMIC) read(info.dlpi_phdr[i].p_vaddr + base_);
    }
  }

  bool ours() const { return dynamic_ == _DYNAMIC; }
  bool named(const char* soname) const {
    return strings_ != nullptr && soname_ != 0 && strcmp(strings_ + soname_, soname) == 0;
  }

  // Null when the object does not define the function.
  void* find(const char* name) const {
    if (symbols_ == nullptr || strings_ == nullptr) return nullptr;
    return gnu_ != nullptr ? find_by_gnu_hash(name) : find_by_chain(name);
  }

 private:
  void read(Elf32_Addr dynamic) {
    dynamic_ = reinterpret_cast<const Elf32_Dyn*>(dynamic);
    for (const Elf32_Dyn* entry = dynamic_; entry->d_tag != DT_NULL; ++entry) {
      switch (entry->d_tag) {
        case DT_SYMTAB:
          symbols_ = at<Elf32_Sym>(entry);
          break;
        case DT_STRTAB:
          strings_ = at<char>(entry);
          break;
        case DT_GNU_HASH:
          gnu_ = at<uint32_t>(entry);
          break;
        case DT_HASH:
          chains_ = at<uint32_t>(entry);
          break;
        case DT_SONAME:
          soname_ = entry->d_un.d_val;
          break;
        default:
          break;
      }
    }
  }

  // The loader has made these addresses absolute, but for objects that it cannot write to.
  template <typename T>
  const T* at(const Elf32_Dyn* entry) const {
    const Elf32_Addr value = entry->d_un.d_ptr;
    return reinterpret_cast<const T*>(value < base_ ? value + base_ : value);
  }

  bool defines(const Elf32_Sym& symbol, const char* name) const {
    return symbol.st_shndx != SHN_UNDEF && ELF32_ST_TYPE(symbol.st_info) == STT_FUNC &&
           strcmp(strings_ + symbol.st_name, name) == 0;
  }

  void* address_of_symbol(uint32_t index) const { return reinterpret_cast<void*>(base_ + symbols_[index].st_value); }

  // Header (buckets, first symbol, filter words, shift), filter, buckets, hashes.
  void* find_by_gnu_hash(const char* name) const {
    const uint32_t count = gnu_[0];
    const uint32_t first = gnu_[1];
    const uint32_t* buckets = gnu_ + 4 + gnu_[2];
    const uint32_t* hashes = buckets + count;
    const uint32_t wanted = gnu_hash(name);
    uint32_t index = count != 0 ? buckets[wanted % count] : 0;
    if (index < first) return nullptr;
    for (;; ++index) {
      const uint32_t hash = hashes[index - first];
      if ((hash | 1) == (wanted | 1) && defines(symbols_[index], name)) return address_of_symbol(index);
      if ((hash & 1) != 0) return nullptr;
    }
  }

  // The second word is the number of symbols.
  void* find_by_chain(const char* name) const {
    for (uint32_t index = 1; chains_ != nullptr && index < chains_[1]; ++index) {
      if (defines(symbols_[index], name)) return address_of_symbol(index);
    }
    return nullptr;
  }

  Elf32_Addr base_;
  const Elf32_Dyn* dynamic_ = nullptr;
  const Elf32_Sym* symbols_ = nullptr;
  const char* strings_ = nullptr;
  const uint32_t* gnu_ = nullptr;
  const uint32_t* chains_ = nullptr;
  Elf32_Word soname_ = 0;
};

// What is looked for, and what was found so far. The objects come in the order in which names are looked up.
struct Search {
  const char* name;
  bool behind_us = false;  // objects up to this library do not count
  bool in_libc = false;    // only the C library counts
  bool past_us = false;
  FoundFunction found{};
};

int look(dl_phdr_info* info, size_t, void* data) {
  auto* search = static_cast<Search*>(data);
  const LoadedObject object(*info);
  const bool counts = (!search->behind_us || search->past_us) && (!search->in_libc || object.named(kLibcName));
  if (object.ours()) search->past_us = true;
  if (!counts) return 0;
  search->found = {object.find(search->name), object.ours()};
  return search->found.address != nullptr ? 1 : 0;
}

FoundFunction run(Search search) {
  dl_iterate_phdr(look, &search);
  return search.found.address != nullptr ? search.found : FoundFunction{};
}

}  // namespace

FoundFunction first_function(const char* name) {
  return run({.name = name});
}

void* next_function(const char* name) {
  return run({.name = name, .behind_us = true}).address;
}

void* libc_function(const char* name) {
  return run({.name = name, .in_libc = true}).address;
}

}  // namespace quarl::glibc
