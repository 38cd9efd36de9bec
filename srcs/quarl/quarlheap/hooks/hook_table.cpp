// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/hooks/hook_table.h"

#include "platform/libc_hooks.h"
#include "state/process.h"

namespace quarl {
namespace {

struct HookTable {
  void* (*malloc)(size_t, const void*);
  void (*free)(void*, const void*);
  void* (*realloc)(void*, size_t, const void*);
  void* (*memalign)(size_t, size_t, const void*);
  void* (*mmap)(void*, size_t, int, int, int, long);
  int (*munmap)(void*, size_t);
};

// The second row has no hooks; installation uses the first.
constexpr HookTable kHookTable[2] = {
    {malloc_hook, free_hook, realloc_hook, memalign_hook, mmap_hook, munmap_hook},
    {},
};

constinit HookTable saved_hooks{};

void store(const HookTable& table) {
  __malloc_hook = table.malloc;
  __free_hook = table.free;
  __memalign_hook = table.memalign;
  __realloc_hook = table.realloc;
  __mmap_hook = table.mmap;
  __munmap_hook = table.munmap;
}

}  // namespace

void install_hooks(void (*initializer)()) {
  __malloc_initialize_hook = initializer;
  saved_hooks = {__malloc_hook, __free_hook, __realloc_hook, __memalign_hook, __mmap_hook, __munmap_hook};
  store(kHookTable[0]);
  __atomic_store_n(&hooks_installed, 1, __ATOMIC_SEQ_CST);
}

void restore_hooks() {
  store(saved_hooks);
  __atomic_store_n(&hooks_installed, 0, __ATOMIC_SEQ_CST);
}

}  // namespace quarl
