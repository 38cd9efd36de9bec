// SPDX-License-Identifier: Apache-2.0
#include "platform/glibc/regions.h"

#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/libc_hooks.h"
#include "platform/system_call.h"

namespace quarl::glibc {
namespace {

constexpr uint32_t kStep = 64 * 1024;  // sizes of regions that are kept, so that like ones serve each other
constexpr uint32_t kSmallestKept = 128 * 1024;
constexpr uint32_t kLargestKept = 640 * 1024;  // from 512 KiB on glibc maps and unmaps every block, too
constexpr int kKept = 8;

// A kept region in a word: pages in the upper 12 bits, number of the first page in the lower 20; 0 for none.
constinit uint32_t kept[kKept]{};
constinit uint32_t next_victim = 0;

uint32_t packed(const Region& region) {
  return region.size / kPage << 20 | region.base / kPage;
}
Region unpacked(uint32_t word) {
  return {(word & 0xFFFFF) * kPage, (word >> 20) * kPage, false};
}

Region map_region(uint32_t size) {
  void* base = ext_mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return base != MAP_FAILED ? Region{address_of(base), size, true} : Region{};
}

bool unmap_region(const Region& region) {
  if (ext_munmap(pointer_to(region.base), region.size) == 0) return true;
  madvise(pointer_to(region.base), region.size, MADV_DONTNEED);
  return false;
}

void unmap_part(const AddressRange& part) {
  if (part.size != 0) ext_munmap(pointer_to(part.start), part.size);
}

bool kept_size(uint32_t size) {
  return size >= kSmallestKept && size <= kLargestKept;
}

Region take_kept(uint32_t size) {
  for (uint32_t& place : kept) {
    uint32_t word = __atomic_load_n(&place, __ATOMIC_RELAXED);
    if (word == 0 || unpacked(word).size != size) continue;
    if (__atomic_compare_exchange_n(&place, &word, 0, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) return unpacked(word);
  }
  return {};
}

bool keep(const Region& region) {
  for (uint32_t& place : kept) {
    uint32_t none = 0;
    if (__atomic_load_n(&place, __ATOMIC_RELAXED) != 0) continue;
    if (__atomic_compare_exchange_n(&place, &none, packed(region), false, __ATOMIC_RELEASE, __ATOMIC_RELAXED))
      return true;
  }
  return false;
}

// The region takes the place of one that was kept longer.
bool keep_instead(const Region& region) {
  const uint32_t at = __atomic_fetch_add(&next_victim, 1, __ATOMIC_RELAXED) % kKept;
  const uint32_t older = __atomic_exchange_n(&kept[at], packed(region), __ATOMIC_ACQ_REL);
  return older == 0 || unmap_region(unpacked(older));
}

}  // namespace

void leave_to_application(const AddressRange& range) {
  for (uint32_t& place : kept) {
    uint32_t word = __atomic_load_n(&place, __ATOMIC_RELAXED);
    const Region region = unpacked(word);
    const AddressRange own{region.base, region.size};
    if (!own.overlaps(range)) continue;
    if (!__atomic_compare_exchange_n(&place, &word, 0, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) continue;
    unmap_part(own.below(range));
    unmap_part(own.behind(range));
  }
}

uint32_t region_size(uint32_t size) {
  return kept_size(size) ? round_up(size, kStep) : size;
}

Region take_region(uint32_t size) {
  const uint32_t wanted = region_size(size);
  Region region = kept_size(wanted) ? take_kept(wanted) : Region{};
  if (region.base == 0) region = map_region(wanted);
  return region.base != 0 ? region : map_region(size);
}

bool drop_kept_regions() {
  bool dropped = false;
  for (uint32_t& place : kept) {
    const uint32_t word = __atomic_exchange_n(&place, 0, __ATOMIC_ACQUIRE);
    if (word != 0) dropped |= unmap_region(unpacked(word));
  }
  return dropped;
}

Region take_region_below(uint32_t alignment, uint32_t size) {
  if (size > UINT32_MAX - alignment) return {};
  const Region all = map_region(size + alignment);
  if (all.base == 0) return {};
  const Address base = round_up(all.base + kPage, alignment) - kPage;
  const uint32_t below = base - all.base;
  if (below != 0) unmap_region({all.base, below, true});
  if (below != alignment) unmap_region({base + size, alignment - below, true});
  return {base, size, true};
}

bool keeps_region(const Region& region) {
  return kept_size(region.size) && region.size % kStep == 0;
}

bool give_back_region(const Region& region) {
  if (!keeps_region(region)) return unmap_region(region);
  return keep(region) || keep_instead(region);
}

// Cut by an unmapping: emulators have been seen to lose all of a mapping that mremap makes shorter.
bool stretch_region(const Region& region, uint32_t size) {
  if (size < region.size) return unmap_region({region.base + size, region.size - size, false});
  return system_call(SYS_mremap, region.base, region.size, size, 0, 0) != -1;
}

// The kernel wants room for the pages at both places for a moment, which a limit may not allow.
void move_region(const Region& region, const Region& place) {
  if (system_call(SYS_mremap, region.base, region.size, place.size, MREMAP_MAYMOVE | MREMAP_FIXED, place.base) != -1)
    return;
  memcpy(pointer_to(place.base), pointer_to(region.base), region.size < place.size ? region.size : place.size);
  give_back_region(region);
}

}  // namespace quarl::glibc
