// Chunks of 128 KiB and more: a mapping each.
//
//   base        4 bytes unused
//   base + 4    chunk word: bytes of the mapping | 2
//   base + 8    the raw block
#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/layer/layer.h"

namespace quarl::layer {
namespace {

constexpr size_t kHeader = 8;

// The chunk that an ordinary allocator of 8-byte chunks would make.
size_t chunk_size(size_t request) {
  return (request + 11) & ~size_t{7};
}

size_t mapping_size(size_t request) {
  const auto page = static_cast<size_t>(getpagesize());
  return (chunk_size(request) + page + 10) & ~(page - 1);
}

// Lets the mapping hooks see a mapping that the raw entries make on behalf of a hook. Deeper inside (the checker's own
// memory, made while it may hold its lock) the mapping stays unseen.
class VisibleMapping {
 public:
  VisibleMapping() : depth_(thread_cache().hook_depth) {
    if (depth_ == 1) thread_cache().hook_depth = 0;
  }
  ~VisibleMapping() { thread_cache().hook_depth = depth_; }

 private:
  int32_t depth_;
};

}  // namespace

bool wants_mapping(size_t request) {
  return chunk_size(request) >= kMappedChunk;
}

bool fits_mapping(void* raw, size_t request) {
  return mapping_size(request) == (chunk_word(raw) & ~7U);
}

void* map_chunk(size_t request) {
  if (request > kLargestRequest) {
    errno = ENOMEM;
    return nullptr;
  }
  const size_t size = mapping_size(request);
  const VisibleMapping visible;
  void* base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  void* raw = static_cast<char*>(base) + kHeader;
  chunk_word(raw) = static_cast<uint32_t>(size) | 2;
  return raw;
}

void unmap_chunk(void* raw) {
  const int error = errno;
  const VisibleMapping visible;
  munmap(static_cast<char*>(raw) - kHeader, chunk_word(raw) & ~7U);
  errno = error;
}

size_t raw_capacity(void* raw) {
  const size_t chunk = chunk_word(raw) & ~7U;
  return is_mapped(raw) ? chunk - kHeader : chunk - sizeof(uint32_t);
}

}  // namespace quarl::layer
