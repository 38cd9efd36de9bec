// SPDX-License-Identifier: Apache-2.0
#include "platform/glibc/mapped_book.h"

#include "platform/glibc/allocators.h"
#include "platform/glibc/regions.h"

namespace quarl::glibc {

constinit MappedBook mapped_book;

bool MappedBook::prepare(Address raw) {
  Leaf** place = &leaves_[raw >> kLeafLog2];
  if (__atomic_load_n(place, __ATOMIC_ACQUIRE) != nullptr) return true;
  void* memory = libc_allocator.allocate_cleared(1, sizeof(Leaf));
  if (memory == nullptr && drop_kept_regions()) memory = libc_allocator.allocate_cleared(1, sizeof(Leaf));
  if (memory == nullptr) return false;
  Leaf* none = nullptr;
  auto* leaf = static_cast<Leaf*>(memory);
  const bool first = __atomic_compare_exchange_n(place, &none, leaf, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
  if (!first) libc_allocator.release(memory);
  return true;
}

void MappedBook::enter(const MappedChunk& chunk) {
  entry_of(chunk.raw) = {chunk, seal_of(chunk)};
  chunk_seal(chunk.raw) = chunk_seal_of(chunk.raw);
}

void MappedBook::remove(Address raw) {
  entry_of(raw) = {};
  chunk_seal(raw) = 0;
}

// The chunk word tells the size of the mapping. The region may have been larger: what it had more is lost, as it may be
// another's.
const MappedChunk* MappedBook::restore(Address raw) {
  if (chunk_seal(raw) != chunk_seal_of(raw)) return nullptr;
  const uint32_t size = round_up(chunk_before(raw).size(), kPage);
  enter({raw, size, size, false});
  return &entry_of(raw).chunk;
}

}  // namespace quarl::glibc
