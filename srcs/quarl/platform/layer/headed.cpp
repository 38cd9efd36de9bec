// Blocks that carry a header, met by the layer where no hook is called.
#include <string.h>

#include "platform/layer/layer.h"

namespace quarl {
namespace {

HeadedBlock (*finder)(void* user) = nullptr;

// The block goes back to the allocator, or stays where it is (see layer.h).
void release_headed(void* user, const HeadedBlock& block) {
  if (layer::inside_checker()) return;
  layer::chunk_word(user) = 0;  // no longer a headed block, should the pointer come again
  ext_free(block.raw);
}

}  // namespace

void set_headed_block_finder(HeadedBlock (*find)(void* user)) {
  finder = find;
}

HeadedBlock layer::find_headed(void* user) {
  return finder != nullptr ? finder(user) : HeadedBlock{nullptr, 0};
}

}  // namespace quarl

using namespace quarl;

extern "C" {

void quarl_layer_release(void* ptr) {
  if (ptr == nullptr) return;
  const HeadedBlock block = layer::find_headed(ptr);
  if (block.raw != nullptr) {
    release_headed(ptr, block);
  } else {
    ext_free(ptr);
  }
}

void* quarl_layer_resize(void* ptr, size_t size) {
  const HeadedBlock block = ptr != nullptr ? layer::find_headed(ptr) : HeadedBlock{nullptr, 0};
  if (block.raw == nullptr) return ext_realloc(ptr, size);
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
  const HeadedBlock block = layer::find_headed(ptr);
  return block.raw != nullptr ? block.user_size : layer::raw_capacity(ptr);
}

}  // extern "C"
