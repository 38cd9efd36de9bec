// Blocks that carry a header, met by the layer where no hook is called.
#include <string.h>

#include "platform/glibc/glibc.h"

namespace quarl {
namespace {

constinit HeadedBlockAccess headed{};

// The block goes back to the allocator, or stays where it is (see glibc.h).
void release_headed(void* user, const HeadedBlock& block) {
  if (glibc::inside_checker() || block.kind == HeadedBlock::kDamaged) return;
  headed.forget(user);
  ext_free(block.raw);
}

}  // namespace

void set_headed_block_access(const HeadedBlockAccess& access) {
  headed = access;
}

HeadedBlock glibc::find_headed(void* user) {
  return headed.find != nullptr ? headed.find(user) : HeadedBlock{};
}

}  // namespace quarl

using namespace quarl;

extern "C" {

// Not inlined into the entries, whose way to the hook they would lengthen.
[[gnu::noinline]] void quarl_layer_release(void* ptr) {
  if (ptr == nullptr) return;
  const HeadedBlock block = glibc::find_headed(ptr);
  if (block.kind != HeadedBlock::kNone) {
    release_headed(ptr, block);
  } else {
    ext_free(ptr);
  }
}

[[gnu::noinline]] void* quarl_layer_resize(void* ptr, size_t size) {
  const HeadedBlock block = ptr != nullptr ? glibc::find_headed(ptr) : HeadedBlock{};
  if (block.kind == HeadedBlock::kNone) return ext_realloc(ptr, size);
  void* moved = nullptr;
  if (size > 0) {
    moved = ext_malloc(size);
    if (moved == nullptr) return nullptr;
    memcpy(moved, ptr, block.user_size < size ? block.user_size : size);
  }
  release_headed(ptr, block);
  return moved;
}

QUARL_EXPORT size_t malloc_usable_size(void* ptr) {
  if (ptr == nullptr) return 0;
  const HeadedBlock block = glibc::find_headed(ptr);
  return block.kind != HeadedBlock::kNone ? block.user_size : glibc::raw_capacity(ptr);
}

}  // extern "C"
