// SPDX-License-Identifier: Apache-2.0
// Chunks of 128 KiB and more: a mapping each.
//
//   base        unused
//   raw - 8     seal: the chunk is one of these
//   raw - 4     chunk word: the size by the rule for such chunks, marked as mapped
//   raw         the raw block, 16 bytes above the base, or aligned as it was asked for
//   base + size end of the mapping, as the hooks know it; the region may reach further
//
// The region is had first; then the mapping hooks are told of it by a call of the public entry, of which the raw entry
// does nothing more. So a chunk that cannot be had is a failed allocation and no failed mapping.
#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/confinement.h"
#include "platform/glibc/allocators.h"
#include "platform/glibc/glibc.h"
#include "platform/glibc/mapped_book.h"
#include "platform/glibc/regions.h"
#include "platform/system.h"

namespace quarl {

namespace {
void (*tell_resized)(void* base, size_t old_size, size_t size) = nullptr;
}

void set_mapping_resized(void (*told)(void* base, size_t old_size, size_t size)) {
  tell_resized = told;
}

}  // namespace quarl

namespace quarl::glibc {
namespace {

constexpr uint32_t kPlainOffset = 16;  // base to raw block

// The mapping that the public entry is being told of on this thread, 0 for none.
constinit thread_local Address told_of = 0;

// Lets the mapping hooks see a mapping that the raw entries make on behalf of a hook. Deeper inside (the checker's own
// memory, a signal handler of the application that interrupted a hook) the mapping stays unseen. What is told is had
// already: a region that cannot be had is a failure of the block alone.
class VisibleMapping {
 public:
  explicit VisibleMapping(Address base) : depth_(thread_cache().hook_depth) {
    told_of = base;
    if (depth_ == 1) thread_cache().hook_depth = 0;
  }
  ~VisibleMapping() {
    thread_cache().hook_depth = depth_;
    told_of = 0;
  }

 private:
  int32_t depth_;
};

[[gnu::always_inline]] inline void tell_mapped(Address base, uint32_t size) {
  const VisibleMapping visible(base);
  (void)mmap(pointer_to(base), size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}
[[gnu::always_inline]] inline void tell_unmapped(Address base, uint32_t size) {
  const VisibleMapping visible(base);
  munmap(pointer_to(base), size);
}
// Done by the hooks themselves: should the kernel refuse, they count it as failed, and their record stays. The pages go
// all the same.
void unmap_visibly(const Region& region) {
  const VisibleMapping visible(0);
  if (munmap(pointer_to(region.base), region.size) != 0) madvise(pointer_to(region.base), region.size, MADV_DONTNEED);
}

// How a chunk lies in its mapping.
struct Shape {
  uint32_t offset;  // base to raw block
  uint32_t size;    // of the mapping
  uint32_t word;    // size in the chunk word: passes the size rule, and rounded up to pages it is the mapping's
};

// The rule for mapped chunks takes 24 off for an alignment of 16; for larger ones it allows up to twice the alignment
// more than it expects, which covers the page that the room in front may cost.
Shape shape_for(uint32_t alignment, uint32_t request) {
  const uint32_t expected = mapping_size_for(chunk_size_for(request), kPage);
  if (alignment < 16) return {kPlainOffset, expected, expected};
  if (alignment == 16) return {kPlainOffset, expected, expected - 24};
  const uint32_t offset = alignment < kPage ? alignment : kPage;
  const uint32_t size = round_up(offset + request, kPage);
  return {offset, size, size == expected ? expected : expected + 8};
}

void* too_large() {
  errno = ENOMEM;
  return nullptr;
}

void enter_chunk(const Region& region, const Shape& shape) {
  const Address raw = region.base + shape.offset;
  mapped_book.enter({raw, shape.size, region.size, region.cleared});
  if (others_behind) remember_pages(region.base, shape.size);
  set_chunk_before(raw, ChunkWord::of_mapping(shape.word));
}

void tell_resized_in_place(Address base, uint32_t old_size, uint32_t size) {
  if (tell_resized != nullptr && thread_cache().hook_depth <= 1) tell_resized(pointer_to(base), old_size, size);
}

// Gives the chunk's region another size where it lies. The hooks are told before addresses are free for others, and
// after they are taken. False when there is no room, the chunk untouched.
bool resize_in_place(const MappedChunk& chunk, const Shape& shape) {
  const uint32_t wanted = region_size(shape.size);
  const Region region{chunk.base(), chunk.region, false};
  const bool shorter = shape.size < chunk.size;
  if (others_behind) forget_pages(chunk.base(), chunk.size);
  if (shorter) tell_resized_in_place(chunk.base(), chunk.size, shape.size);
  if (wanted == chunk.region || stretch_region(region, wanted)) {
    enter_chunk({chunk.base(), wanted, false}, shape);
    if (!shorter) tell_resized_in_place(chunk.base(), chunk.size, shape.size);
    return true;
  }
  if (shorter) tell_resized_in_place(chunk.base(), shape.size, chunk.size);
  if (others_behind) remember_pages(chunk.base(), chunk.size);
  return false;
}

// Moves the chunk's pages to a larger region. Null when there is no memory, the chunk untouched.
void* move_chunk(const MappedChunk* entry, const Shape& shape) {
  const MappedChunk chunk = *entry;
  const uint32_t wanted = region_size(shape.size);
  const Region place = take_region(wanted);
  if (place.base == 0) return nullptr;
  if (!mapped_book.prepare(place.base) || place.size < wanted) {
    give_back_region(place);
    return nullptr;
  }
  // The hooks are told of the end before the addresses are free for others.
  mapped_book.remove(chunk.raw);
  if (others_behind) forget_pages(chunk.base(), chunk.size);
  tell_unmapped(chunk.base(), chunk.size);
  move_region({chunk.base(), chunk.region, false}, place);
  enter_chunk(place, shape);
  tell_mapped(place.base, shape.size);
  return pointer_to(place.base + shape.offset);
}

}  // namespace

bool told_mapping(const void* addr) {
  return addr != nullptr && address_of(addr) == told_of;
}

bool wants_mapping(size_t request) {
  return chunk_reaches(request, kMappedChunk);
}

void* map_chunk(size_t alignment, size_t request) {
  if (request > kLargestRequest || alignment > kLargestRequest) return too_large();
  const Shape shape = shape_for(static_cast<uint32_t>(alignment), request);
  const Region region =
      alignment > kPage ? take_region_below(static_cast<uint32_t>(alignment), shape.size) : take_region(shape.size);
  if (region.base == 0) return too_large();
  if (!mapped_book.prepare(region.base + shape.offset)) {
    give_back_region(region);
    return too_large();
  }
  enter_chunk(region, shape);
  tell_mapped(region.base, shape.size);
  return pointer_to(region.base + shape.offset);
}

void unmap_chunk(const MappedChunk* entry) {
  const int error = errno;
  const MappedChunk chunk = *entry;
  mapped_book.remove(chunk.raw);
  if (others_behind) forget_pages(chunk.base(), chunk.size);
  const Region region{chunk.base(), chunk.region, false};
  if (keeps_region(region)) {
    tell_unmapped(chunk.base(), chunk.size);
    give_back_region(region);
  } else {
    unmap_visibly(region);
  }
  errno = error;
}

void* resize_chunk(const MappedChunk* entry, size_t request) {
  const MappedChunk chunk = *entry;
  const Shape shape = shape_for(0, request);
  if (chunk.raw - chunk.base() != kPlainOffset) return nullptr;
  if (shape.size == chunk.size) return pointer_to(chunk.raw);
  return resize_in_place(chunk, shape) ? pointer_to(chunk.raw) : move_chunk(entry, shape);
}

namespace {

bool word_exists(Address at) {
  return sys::word_exists(static_cast<const uint32_t*>(pointer_to(at)));
}

}  // namespace

// glibc looks at the chunk that follows, and finds it by the word before the pointer: a pointer that is no block, or
// whose header was overwritten, leads it anywhere.
size_t raw_capacity(void* pointer) {
  const Address raw = address_of(pointer);
  const bool vouched_for = is_bare_block(pointer) || confined();  // to look asks the kernel
  if (!vouched_for && (raw % 8 != 0 || !word_exists(raw - 4))) return 0;
  const MappedChunk* chunk = mapped_book.find(raw);
  if (chunk != nullptr) return chunk->capacity();
  if (!vouched_for && !word_exists(raw - 4 + chunk_before(raw).size())) return 0;
  return libc_allocator.usable_size(pointer);
}

}  // namespace quarl::glibc
