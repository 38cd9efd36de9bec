// The layer's books of its mapped chunks: what is known of them without a look at memory that the program may have
// written. Exact for every address. They lie in the C library's heap: an application may map over a mapping of ours,
// not over that. An entry is read and written by whoever owns the addresses of its mapping, so there is no lock.
#pragma once

#include "platform/address.h"

namespace quarl::glibc {

struct MappedChunk {
  Address raw;      // multiple of 8; 0: no chunk
  uint32_t size;    // bytes of its mapping, as the mapping hooks know it
  uint32_t region;  // bytes that are really mapped: size or more
  bool cleared;     // the kernel's zeros, never handed out before

  Address base() const { return (raw - 8) & ~0xFFFU; }
  uint32_t capacity() const { return base() + size - raw; }
};

class MappedBook {
 public:
  // The chunk that begins exactly there, null when there is none.
  MappedChunk* find(Address raw) const {
    const Leaf* leaf = __atomic_load_n(&leaves_[raw >> kLeafLog2], __ATOMIC_RELAXED);
    if (__builtin_expect(leaf == nullptr, 1)) return nullptr;
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
    const MappedChunk& entry = leaf->entries[index(raw)];
    return entry.raw == raw && raw != 0 ? const_cast<MappedChunk*>(&entry) : nullptr;
  }

  // Makes room for entries of chunks there. False when there is no memory.
  bool prepare(Address raw);

  // Enters a chunk for which there is room.
  void enter(const MappedChunk& chunk) { leaves_[chunk.raw >> kLeafLog2]->entries[index(chunk.raw)] = chunk; }
  void remove(MappedChunk* chunk) { chunk->raw = 0; }

 private:
  static constexpr uint32_t kLeafLog2 = 22;  // a leaf for 4 MiB of addresses, an entry a page
  static constexpr uint32_t kPageLog2 = 12;
  static constexpr uint32_t kEntries = 1U << (kLeafLog2 - kPageLog2);

  struct Leaf {
    MappedChunk entries[kEntries];
  };
  static uint32_t index(Address raw) { return raw >> kPageLog2 & (kEntries - 1); }

  Leaf* leaves_[1U << (32 - kLeafLog2)]{};
};

extern MappedBook mapped_book;

}  // namespace quarl::glibc
