// SPDX-License-Identifier: Apache-2.0
#include "platform/glibc/bare_blocks.h"

#include "platform/address.h"
#include "platform/glibc/allocators.h"

namespace quarl {
namespace {

constexpr uint32_t kLeafLog2 = 20;  // a leaf for 1 MiB of addresses
constexpr uint32_t kGrainLog2 = 3;
constexpr uint32_t kWords = 1U << (kLeafLog2 - kGrainLog2 - 5);

constinit uint32_t* leaves[1U << (32 - kLeafLog2)]{};

uint32_t* leaf_of(Address block) {
  return __atomic_load_n(&leaves[block >> kLeafLog2], __ATOMIC_ACQUIRE);
}

uint32_t* make_leaf(Address block) {
  void* memory = glibc::libc_allocator.allocate_cleared(kWords, sizeof(uint32_t));
  if (memory == nullptr) return nullptr;
  uint32_t* none = nullptr;
  auto* leaf = static_cast<uint32_t*>(memory);
  uint32_t** place = &leaves[block >> kLeafLog2];
  if (__atomic_compare_exchange_n(place, &none, leaf, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) return leaf;
  glibc::libc_allocator.release(memory);
  return none;
}

uint32_t* word_of(uint32_t* leaf, Address block) {
  return leaf + (block >> (kGrainLog2 + 5) & (kWords - 1));
}
uint32_t bit_of(Address block) {
  return 1U << (block >> kGrainLog2 & 31);
}

}  // namespace

void glibc::note_bare_block(void* pointer) {
  const Address block = address_of(pointer);
  if (block == 0) return;
  uint32_t* leaf = leaf_of(block);
  if (leaf == nullptr) leaf = make_leaf(block);
  if (leaf != nullptr) __atomic_fetch_or(word_of(leaf, block), bit_of(block), __ATOMIC_RELAXED);
}

bool is_bare_block(void* pointer) {
  const Address block = address_of(pointer);
  uint32_t* leaf = leaf_of(block);
  if (leaf == nullptr || block % 8 != 0) return false;
  return (__atomic_load_n(word_of(leaf, block), __ATOMIC_RELAXED) & bit_of(block)) != 0;
}

bool glibc::forget_bare_block(void* pointer) {
  if (!is_bare_block(pointer)) return false;
  const Address block = address_of(pointer);
  return (__atomic_fetch_and(word_of(leaf_of(block), block), ~bit_of(block), __ATOMIC_RELAXED) & bit_of(block)) != 0;
}

bool take_bare_block(void* ptr) {
  return glibc::forget_bare_block(ptr);
}
void keep_bare_block(void* ptr) {
  glibc::note_bare_block(ptr);
}

}  // namespace quarl
