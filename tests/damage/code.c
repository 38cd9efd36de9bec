// SPDX-License-Identifier: Apache-2.0
#include "code.h"

#include <dlfcn.h>
#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static struct Module {
  uintptr_t low, high, base;
  char name[40];
} modules[16];
static int module_count;
static uintptr_t allocator_low, allocator_high, walk_low, walk_high;

static void learn_modules(void) {
  FILE* maps = fopen("/proc/self/maps", "r");
  char line[512], path[400], mode[8], previous[400] = "";
  unsigned long low, high, base = 0;
  while (fgets(line, sizeof line, maps)) {
    *path = '\0';
    sscanf(line, "%lx-%lx %7s %*s %*s %*s %399s", &low, &high, mode, path);
    if (strcmp(path, previous) != 0) base = low;
    strcpy(previous, path);
    if (mode[2] != 'x' || *path != '/' || module_count == 16) continue;
    const char* name = strrchr(path, '/') + 1;
    modules[module_count] = (struct Module){low, high, base, ""};
    snprintf(modules[module_count++].name, sizeof modules->name, "%.39s", name);
  }
  fclose(maps);
}

enum { kUnnamed = 0x1800 };  // bytes of the allocator's own functions below its first symbol

// The C library's allocator is one object file: from what lies below its first symbol that can be asked for to its
// last.
static void learn_allocator(void) {
  void* libc = dlopen("libc.so.6", RTLD_NOW);
  void* first = dlvsym(libc, "__default_morecore", "GLIBC_2.0");
  if (!first) first = dlvsym(libc, "__default_morecore", "GLIBC_2.4");
  if (!first) first = (char*)dlsym(libc, "__libc_malloc") - 0x3000;
  allocator_low = (uintptr_t)first - kUnnamed;
  allocator_high = (uintptr_t)dlsym(libc, "malloc_info") + 100;
  // The loader's list of libraries lies in blocks that a pointer given back before may name.
  Dl_info walk;
  const ElfW(Sym)* symbol = NULL;
  if (!dladdr1(dlsym(libc, "dl_iterate_phdr"), &walk, (void**)&symbol, RTLD_DL_SYMENT) || !symbol) abort();
  walk_low = (uintptr_t)walk.dli_saddr;
  walk_high = walk_low + symbol->st_size;
}

void learn_code(void) {
  learn_modules();
  learn_allocator();
}

static const struct Module* module_of(uintptr_t address) {
  for (int i = 0; i < module_count; ++i) {
    if (address >= modules[i].low && address < modules[i].high) return &modules[i];
  }
  return NULL;
}

// QUARL_DAMAGE_ENTRIES: first and last byte, from the start of the library, of the entries that hand a pointer to the
// allocator as it is. One that leads nowhere crashes there as it would in the allocator.
static int in_raw_entry(uintptr_t offset) {
  const char* text = getenv("QUARL_DAMAGE_ENTRIES");
  unsigned long low, high;
  for (int length; text && sscanf(text, "%lx-%lx;%n", &low, &high, &length) >= 2; text += length) {
    if (offset >= low && offset < high) return 1;
  }
  return 0;
}

enum Owner owner_of(uintptr_t address) {
  const struct Module* module = module_of(address);
  if (!module) return kNobody;
  if (strstr(module->name, "libquarl")) return in_raw_entry(address - module->base) ? kAllocator : kChecker;
  if (strncmp(module->name, "ld-", 3) == 0) return kAllocator;
  if (address >= walk_low && address < walk_high) return kAllocator;
  return address >= allocator_low && address < allocator_high ? kAllocator : kOther;
}

int is_code(uintptr_t address) {
  const struct Module* module = module_of(address);
  if (!module || address < module->low + 8) return 0;
#if defined(__i386__)
  const uint8_t* code = (const uint8_t*)address;
  return code[-5] == 0xE8 || (code[-2] == 0xFF && (code[-1] & 0x38) == 0x10) ||
         (code[-3] == 0xFF && (code[-2] & 0x38) == 0x10) || (code[-6] == 0xFF && (code[-5] & 0x38) == 0x10);
#else
  if (address & 1) {
    const uint16_t* code = (const uint16_t*)(address - 1);
    return (code[-1] & 0xFF87) == 0x4780 || (code[-2] & 0xF800) == 0xF000;
  }
  if (address & 3) return 0;
  uint32_t code = ((const uint32_t*)address)[-1];
  return (code & 0x0F000000) == 0x0B000000 || (code & 0x0FFFFFF0) == 0x012FFF30 || (code & 0xFE000000) == 0xFA000000;
#endif
}

const char* name_of(uintptr_t address) {
  static char text[80];
  const struct Module* module = module_of(address);
  snprintf(text, sizeof text, module ? "%s+0x%lx" : "%s0x%lx", module ? module->name : "",
           (unsigned long)(address - (module ? module->base : 0)));
  return text;
}
