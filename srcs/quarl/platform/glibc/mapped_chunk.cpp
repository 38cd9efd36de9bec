// Chunks of 128 KiB and more: a mapping each.
//
//   base        4 bytes unused
//   base + 4    chunk word: the whole mapping, marked as mapped
//   base + 8    the raw block
#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/checked_programs.h"
#include "platform/glibc/glibc.h"

namespace quarl::glibc {
namespace {

constexpr size_t kHeader = 8;

size_t mapping_size(size_t request) {
  return mapping_size_for(chunk_size_for(request), static_cast<uint32_t>(getpagesize()));
}

size_t chunk_size(void* raw) {
  return chunk_before(address_of(raw)).size();
}

// Lets the mapping hooks see a mapping that the raw entries make on behalf of a hook. Deeper inside (the checker's own
// memory, made while it may hold its lock) the mapping stays unseen. One that fails is a failure of the block alone.
class VisibleMapping {
 public:
  VisibleMapping() : depth_(thread_cache().hook_depth) {
    if (depth_ == 1) thread_cache().hook_depth = 0;
    thread_cache().maps_for_block = true;
  }
  ~VisibleMapping() {
    thread_cache().maps_for_block = false;
    thread_cache().hook_depth = depth_;
  }

 private:
  int32_t depth_;
};

}  // namespace

bool wants_mapping(size_t request) {
  return chunk_reaches(request, kMappedChunk) && !left_alone();
}

bool fits_mapping(void* raw, size_t request) {
  return mapping_size(request) == chunk_size(raw);
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
  set_chunk_before(address_of(raw), ChunkWord::of_mapping(size));
  return raw;
}

void unmap_chunk(void* raw) {
  const int error = errno;
  const VisibleMapping visible;
  munmap(static_cast<char*>(raw) - kHeader, chunk_size(raw));
  errno = error;
}

size_t raw_capacity(void* raw) {
  return chunk_size(raw) - (is_mapped(raw) ? kHeader : sizeof(uint32_t));
}

}  // namespace quarl::glibc
