#include "platform/glibc/mapped_book.h"

#include <sys/mman.h>

#include "platform/libc_hooks.h"

namespace quarl::glibc {

constinit MappedBook mapped_book;

bool MappedBook::prepare(Address raw) {
  Leaf** place = &leaves_[raw >> kLeafLog2];
  if (__atomic_load_n(place, __ATOMIC_ACQUIRE) != nullptr) return true;
  void* memory = ext_mmap(nullptr, sizeof(Leaf), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return false;
  Leaf* none = nullptr;
  auto* leaf = static_cast<Leaf*>(memory);
  const bool first = __atomic_compare_exchange_n(place, &none, leaf, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
  if (!first) ext_munmap(memory, sizeof(Leaf));
  return true;
}

}  // namespace quarl::glibc
