#include "state/own_memory.h"

namespace quarl {
namespace {

constexpr Address kStride = 1U << 24;

void* map_near(Address hint, size_t size) {
  const InsideChecker inside;
  return raw::map(pointer_to(hint), size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

void unmap_part(const AddressRange& part) {
  if (part.size != 0) unmap_own(pointer_to(part.start), part.size);
}

}  // namespace

// First where the kernel likes, then all over the address space.
void* map_own_outside(size_t size, const AddressRange& range) {
  Address hint = 0;
  do {
    void* memory = map_near(hint, size);
    if (memory == MAP_FAILED || !range.overlaps({address_of(memory), static_cast<uint32_t>(size)})) return memory;
    unmap_own(memory, size);
    hint += kStride;
  } while (hint != 0);
  return MAP_FAILED;
}

void unmap_own_outside(void* memory, size_t size, const AddressRange& range) {
  const AddressRange own{address_of(memory), static_cast<uint32_t>(size)};
  if (!own.overlaps(range)) return unmap_own(memory, size);
  unmap_part(own.below(range));
  unmap_part(own.behind(range));
}

}  // namespace quarl
