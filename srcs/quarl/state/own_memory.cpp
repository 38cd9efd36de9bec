// SPDX-License-Identifier: Apache-2.0
#include "state/own_memory.h"

namespace quarl {
namespace {

constexpr Address kStride = 1U << 24;
constexpr uint32_t kGuard = 4096;

void* map_wall(Address hint, size_t size) {
  const InsideChecker inside;
  return raw::map(pointer_to(hint), size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

// Not by mprotect: that is another call than those that allocators need.
bool open_wall(void* memory, size_t size) {
  const InsideChecker inside;
  return raw::map(memory, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

void unmap_part(const AddressRange& part) {
  if (part.size != 0) unmap_own(pointer_to(part.start), part.size);
}

// First where the kernel likes, then all over the address space.
void* map_wall_outside(size_t size, const AddressRange& avoided) {
  Address hint = 0;
  do {
    void* wall = map_wall(hint, size);
    if (wall == MAP_FAILED || !avoided.overlaps({address_of(wall), static_cast<uint32_t>(size)})) return wall;
    unmap_own(wall, size);
    hint += kStride;
  } while (hint != 0);
  return MAP_FAILED;
}

}  // namespace

AddressRange guarded_range(const void* memory, size_t size) {
  return {address_of(memory) - kGuard, static_cast<uint32_t>(size) + 2 * kGuard};
}

void* map_guarded(size_t size, const AddressRange& avoided) {
  void* wall = map_wall_outside(size + 2 * kGuard, avoided);
  if (wall == MAP_FAILED) return MAP_FAILED;
  void* memory = static_cast<char*>(wall) + kGuard;
  if (open_wall(memory, size)) return memory;
  unmap_own(wall, size + 2 * kGuard);
  return MAP_FAILED;
}

void unmap_guarded(void* memory, size_t size, const AddressRange& left) {
  const AddressRange own = guarded_range(memory, size);
  if (!own.overlaps(left)) return unmap_part(own);
  unmap_part(own.below(left));
  unmap_part(own.behind(left));
}

}  // namespace quarl
