// SPDX-License-Identifier: Apache-2.0
#include "symbols/symbol_table.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/print.h"
#include "platform/system.h"
#include "platform/thread_cache.h"
#include "symbols/elf_image.h"

namespace quarl {
namespace {

// The place that messages name.
#define QUARL_PLACE "srcs/quarl/quarlheap", __LINE__

enum class Source : int { kApplication = 0, kElf = 1, kFailed = 3 };

struct ElfFile {
  int fd = -1;
  void* base = nullptr;
  size_t size = 0;
  ElfImage image;
};

Source source = Source::kApplication;
constinit ElfFile elf_file;
constinit bool told = false;

void close_file() {
  if (elf_file.fd != -1) sys::close(elf_file.fd);
  elf_file.fd = -1;
}

void unmap_file() {
  if (elf_file.base != nullptr) munmap(elf_file.base, elf_file.size);
  elf_file.base = nullptr;
}

bool open_own_program(struct stat64* info) {
  TextBuffer<64> path;
  path.format("/proc/%d/exe", static_cast<int>(getpid())).terminate();
  elf_file.fd = sys::open(path.data(), O_RDONLY);
  if (elf_file.fd < 0) {
    elf_file.fd = -1;
    print_trouble(&told, {"symbols", nullptr, errno}, "%s:%d : cannot open appver;\n", QUARL_PLACE);
    return false;
  }
  if (sys::stat_fd(elf_file.fd, info)) return true;
  print_trouble(&told, {"symbols", nullptr, errno}, "%s:%d: cannot fstat appver;\n", QUARL_PLACE);
  return false;
}

// The file at `path`; the running program when there is no path or the file's size cannot be had.
bool open_file(const char* path, struct stat64* info) {
  if (path == nullptr) return open_own_program(info);
  elf_file.fd = sys::open(path, O_RDONLY);
  if (elf_file.fd < 0) {
    elf_file.fd = -1;
    return false;
  }
  if (sys::stat_fd(elf_file.fd, info)) return true;
  print_trouble(&told, {"symbols", nullptr, errno}, "%s:%d: cannot fstat %s;\n", QUARL_PLACE, path);
  close_file();
  return open_own_program(info);
}

bool map_file(const struct stat64& info) {
  elf_file.size = static_cast<size_t>(info.st_size);
  void* base = mmap(nullptr, elf_file.size, PROT_READ, MAP_PRIVATE, elf_file.fd, 0);
  if (base == MAP_FAILED) {
    print_trouble(&told, {"symbols", nullptr, errno}, "%s:%d: mmap failed;\n", QUARL_PLACE);
    return false;
  }
  elf_file.base = base;
  if (elf_file.image.parse(base, elf_file.size)) return true;
  print_trouble(&told, {"symbols", nullptr, errno}, "%s:%d: unsupported file type;\n", QUARL_PLACE);
  unmap_file();
  return false;
}

uint32_t look_up_elf(const char* name, int* type, uint32_t* size) {
  const Elf32_Sym* symbol = elf_file.image.find(name);
  if (symbol == nullptr) return 0;
  if (size != nullptr) *size = symbol->st_size;
  if (type != nullptr) *type = ELF32_ST_TYPE(symbol->st_info) == STT_FUNC ? kSymbolFunction : kSymbolOther;
  return symbol->st_value;
}

uint32_t look_up_application(const char* name, int* type, uint32_t* size) {
  for (uint32_t i = 0; i < ulSymTblSize; ++i) {
    const TaSymbol& symbol = taSymTbl[i];
    if (strcmp(reinterpret_cast<const char*>(static_cast<uintptr_t>(symbol.name)), name) != 0) continue;
    if (size != nullptr) *size = taSymTbl[i + 1].value - symbol.value;
    if (type != nullptr) *type = symbol.type == STT_FUNC ? kSymbolFunction : kSymbolOther;
    return symbol.value;  // relative ones too: the load base is 0
  }
  return 0;
}

}  // namespace

int load_symbols(const char* path) {
  const InsideChecker inside;
  source = Source::kApplication;
  if (ulSymTblSize != 0) return 0;
  source = Source::kElf;
  struct stat64 info {};
  if (open_file(path, &info) && map_file(info)) return 0;
  close_file();
  source = Source::kFailed;
  return -1;
}

uint32_t look_up_symbol(const char* name, int* type, uint32_t* size) {
  if (name == nullptr) return 0;
  return source == Source::kElf ? look_up_elf(name, type, size) : look_up_application(name, type, size);
}

bool symbols_are_link_time() {
  return source == Source::kElf;
}

int unload_symbols() {
  const InsideChecker inside;
  if (source == Source::kElf) {
    unmap_file();
    close_file();
  }
  return 0;
}

}  // namespace quarl
