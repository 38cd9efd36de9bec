// SPDX-License-Identifier: Apache-2.0
// The chunk word: the 32 bits before every raw block, in which the allocator keeps the chunk's size. The one place that
// knows what they mean and what a request is expected to get, for either C library: over glibc ordinary chunks are
// glibc's and mapped ones the layer's, made by the rules below.
#pragma once

#include "platform/address.h"

namespace quarl {

struct ChunkWord {
  static constexpr uint32_t kMapped = 2;   // the chunk is a mapping of its own
  static constexpr uint32_t kLowBits = 7;  // not part of the size

  uint32_t word;

  constexpr uint32_t size() const { return word & ~kLowBits; }
  // Whether it is an ordinary chunk of this size, a multiple of 8, or of the next: what an allocator gives that rounds
  // to 8 or to 16.
  constexpr bool is_ordinary(uint32_t bytes) const { return (((word & ~(kLowBits & ~kMapped)) - bytes) & ~8U) == 0; }
  constexpr bool mapped() const { return (word & kMapped) != 0; }
  static constexpr ChunkWord of_mapping(uint32_t size) { return {size | kMapped}; }
};

inline ChunkWord chunk_before(Address raw) {
  return {word_at(raw - 4)};
}
inline void set_chunk_before(Address raw, ChunkWord chunk) {
  word_at(raw - 4) = chunk.word;
}

// Bytes of the raw block. Those of a chunk that is a mapping of its own go to the end of that, a page's end; the size
// in the chunk word is up to 24 less than the bytes to there, or more, by the block's alignment.
inline uint32_t raw_room(Address raw) {
  constexpr uint32_t kWithinPage = 4095;
  const ChunkWord chunk = chunk_before(raw);
  if (!chunk.mapped()) return chunk.size() - 4;
  return ((raw - 8) & ~kWithinPage) + ((chunk.size() + kWithinPage) & ~kWithinPage) - raw;
}

// Bytes of the chunk that a request of so many bytes gets: room for the word, in steps of 8, at least 16. An allocator
// of larger steps gives up to 8 more.
constexpr uint32_t chunk_size_for(uint32_t request) {
  const uint32_t bytes = request + 11;
  return bytes > 15 ? bytes & ~ChunkWord::kLowBits : 16;
}

// The same of a request of 5 bytes or more; what wraps around is no chunk's size.
constexpr uint32_t chunk_size_above_least(uint32_t request) {
  return (request + 11) & ~ChunkWord::kLowBits;
}

// The chunk of such a request has at least so many bytes, a multiple of 8 above 16.
constexpr bool chunk_reaches(uint32_t request, uint32_t chunk_size) {
  return request + 11 >= chunk_size;
}

// Bytes of the mapping that such a chunk takes when it is one of its own; `page` is the page size.
constexpr uint32_t mapping_size_for(uint32_t chunk, uint32_t page) {
  return (chunk + page + 10) & ~(page - 1);
}

static_assert(chunk_size_above_least(5) == chunk_size_for(5) && chunk_size_above_least(13) == chunk_size_for(13));
static_assert(chunk_size_for(0) == 16 && chunk_size_for(12) == 16 && chunk_size_for(13) == 24);
static_assert(mapping_size_for(16, 4096) == 4096 && mapping_size_for(4088, 4096) == 8192);

}  // namespace quarl
