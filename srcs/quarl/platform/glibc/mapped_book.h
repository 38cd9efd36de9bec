// SPDX-License-Identifier: Apache-2.0
// The layer's books of its mapped chunks: what is known of them without a look at memory that the program may have
// written. Exact for every address. They lie in the C library's heap: an application may map over a mapping of ours,
// not over that. There it may write, though, by an overrun: an entry is sealed, and one that is not whole is made anew
// from the chunk, which bears a seal of its own in the word before its chunk word. An entry is read and written by
// whoever owns the addresses of its mapping, so there is no lock.
#pragma once

#include "platform/address.h"
#include "platform/chunk.h"

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
  // The chunk that begins exactly there, null when there is none. The word before it is there.
  const MappedChunk* find(Address raw) {
    const Leaf* leaf = __atomic_load_n(&leaves_[raw >> kLeafLog2], __ATOMIC_RELAXED);
    if (__builtin_expect(leaf == nullptr, 1)) return nullptr;
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
    const Entry& entry = leaf->entries[index(raw)];
    if (__builtin_expect(entry.chunk.raw == raw && entry.seal == seal_of(entry.chunk), 1)) return &entry.chunk;
    return __builtin_expect(chunk_before(raw).mapped(), 0) ? restore(raw) : nullptr;
  }

  // Makes room for entries of chunks there. False when there is no memory.
  bool prepare(Address raw);

  // Enters a chunk for which there is room, and seals it.
  void enter(const MappedChunk& chunk);
  // The chunk that begins there is none any more.
  void remove(Address raw);

 private:
  static constexpr uint32_t kLeafLog2 = 22;  // a leaf for 4 MiB of addresses, an entry a page
  static constexpr uint32_t kPageLog2 = 12;
  static constexpr uint32_t kEntries = 1U << (kLeafLog2 - kPageLog2);

  struct Entry {
    MappedChunk chunk;
    uint32_t seal;
  };
  struct Leaf {
    Entry entries[kEntries];
  };

  // Told from what a program writes there, not from what it could make up.
  static uint32_t seal_of(const MappedChunk& chunk) {
    return ((chunk.raw * 31 + chunk.size) * 31 + chunk.region + (chunk.cleared ? 1 : 0)) * 2654435761U ^ 0x5EA1ED00;
  }
  static uint32_t& chunk_seal(Address raw) { return word_at(raw - 8); }
  static uint32_t chunk_seal_of(Address raw) { return raw * 2654435761U ^ 0x5EA1ED01; }

  [[gnu::cold, gnu::noinline]] const MappedChunk* restore(Address raw);
  Entry& entry_of(Address raw) { return leaves_[raw >> kLeafLog2]->entries[index(raw)]; }
  static uint32_t index(Address raw) { return raw >> kPageLog2 & (kEntries - 1); }

  Leaf* leaves_[1U << (32 - kLeafLog2)]{};
};

extern MappedBook mapped_book;

}  // namespace quarl::glibc
