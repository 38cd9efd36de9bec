// SPDX-License-Identifier: Apache-2.0
// Blocks that carry a header, met by the layer where no hook is called.
#include <string.h>

#include "platform/glibc/allocators.h"
#include "platform/glibc/bare_blocks.h"
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
  return headed.find != nullptr && !of_other_allocator(user) ? headed.find(user) : HeadedBlock{};
}

}  // namespace quarl

using namespace quarl;

namespace {

// What a handler of the application does to large blocks while it interrupts a hook is not the mapping hooks' to see:
// they would wait for a lock that its own thread holds.
class Unseen {
 public:
  Unseen() : depth_(thread_cache().hook_depth) {
    if (depth_ == 1) thread_cache().hook_depth = 2;
  }
  ~Unseen() { thread_cache().hook_depth = depth_; }
  bool checkers_own() const { return depth_ > 1; }

 private:
  int32_t depth_;
};

// The caller is to be served as if we were not there.
bool stands_aside() {
  glibc::find_allocators();
  return glibc::bypassed.everything;
}

void* noted(const Unseen& unseen, void* block) {
  if (!unseen.checkers_own()) glibc::note_bare_block(block);
  return block;
}

}  // namespace

extern "C" {

// Not inlined into the entries, whose way to the hook they would lengthen.
[[gnu::noinline]] void* quarl_layer_allocate(size_t size) {
  if (stands_aside()) return glibc::libc_allocator.allocate(size);
  const Unseen unseen;
  return noted(unseen, ext_malloc(size));
}

[[gnu::noinline]] void* quarl_layer_allocate_aligned(size_t alignment, size_t size) {
  if (stands_aside() || glibc::bypassed.memalign) return glibc::libc_allocator.allocate_aligned(alignment, size);
  const Unseen unseen;
  return noted(unseen, ext_memalign(alignment, size));
}

[[gnu::noinline]] void quarl_layer_release(void* ptr) {
  if (stands_aside()) return glibc::libc_allocator.release(ptr);
  if (ptr == nullptr) return;
  const Unseen unseen;
  const HeadedBlock block = glibc::find_headed(ptr);
  if (block.kind != HeadedBlock::kNone) {
    release_headed(ptr, block);
  } else {
    glibc::forget_bare_block(ptr);
    ext_free(ptr);
  }
}

[[gnu::noinline]] void* quarl_layer_resize(void* ptr, size_t size) {
  if (stands_aside()) return glibc::libc_allocator.resize(ptr, size);
  const Unseen unseen;
  const HeadedBlock block = ptr != nullptr ? glibc::find_headed(ptr) : HeadedBlock{};
  if (block.kind == HeadedBlock::kNone) {
    const bool bare = glibc::forget_bare_block(ptr);
    void* moved = ext_realloc(ptr, size);
    if (moved == nullptr && bare && size > 0) glibc::note_bare_block(ptr);
    return of_other_allocator(moved) ? moved : noted(unseen, moved);
  }
  void* moved = nullptr;
  if (size > 0) {
    moved = noted(unseen, ext_malloc(size));
    if (moved == nullptr) return nullptr;
    memcpy(moved, ptr, block.user_size < size ? block.user_size : size);
  }
  release_headed(ptr, block);
  return moved;
}

QUARL_EXPORT size_t malloc_usable_size(void* ptr) {
  if (ptr == nullptr) return 0;
  if (stands_aside()) return glibc::libc_allocator.usable_size(ptr);
  const HeadedBlock block = glibc::find_headed(ptr);
  return block.kind != HeadedBlock::kNone ? block.user_size : glibc::raw_capacity(ptr);
}

}  // extern "C"
