// SPDX-License-Identifier: Apache-2.0
// What the library counted, of the process or of a thread: its figures of held bytes have 32 bits and no sign.
#pragma once

#include <algorithm>
#include <numeric>
#include <optional>

#include "quarl/logs/format.h"

namespace quarl::report {

// True when it counted at all (QUARL_PROF was on).
inline bool has_counts(const ProfInfo& statistics) {
  return std::any_of(std::begin(statistics.calls), std::end(statistics.calls),
                     [](uint32_t calls) { return calls != 0; });
}

// Of both kinds of block: every call, each resize twice, as it is recorded. The allocator's own mappings are counted as
// the application's, too.
template <typename Counts>
uint64_t recorded_calls(const Counts& counts) {
  uint64_t all = std::accumulate(std::begin(counts.calls), std::end(counts.calls), uint64_t{0});
  return all - counts.calls[kOpChunkMap] - counts.calls[kOpChunkUnmap];
}

// The number of 64 bits that `counted` is the lower half of, if that is `net`.
inline int64_t with_sign(uint64_t net, uint32_t counted) {
  return static_cast<uint32_t>(net) == counted ? static_cast<int64_t>(net) : int64_t{counted};
}

// Bytes held: less than none where more was released than was allocated since the counting began (a thread releases
// what others allocated; parts of mappings are unmapped). The totals, of 64 bits, tell which number the 32 bits stand
// for.
template <typename Counts>
int64_t held_bytes(const Counts& counts) {
  const auto& totals = counts.totals;
  uint64_t allocated = totals[kOpMalloc] + totals[kOpRealloc] + totals[kOpMemalign] + totals[kOpMmap];
  uint64_t released = totals[kOpFree] + totals[kOpReallocRelease] + totals[kOpMunmap];
  return with_sign(allocated - totals[kOpChunkMap] + totals[kOpChunkUnmap] - released, counts.unfree_size);
}

template <typename Counts>
int64_t held_file_bytes(const Counts& counts) {
  return with_sign(counts.totals[kOpMmapFile] - counts.totals[kOpMunmapFile], counts.unfree_file_size);
}

// The most bytes held; nothing where the count was below zero once, which is taken for the highest of all. No process
// of 32 bits holds as much as that then says.
inline std::optional<uint64_t> known_peak(uint32_t counted) {
  constexpr uint32_t kMostHeld = 0xC0000000;
  return counted < kMostHeld ? std::optional<uint64_t>(counted) : std::nullopt;
}

// A block that is a mapping of its own is counted twice for a moment, as the mapping and as the block: the peak may be
// higher than what was ever held. Without such blocks it is right.
template <typename Counts>
bool peak_is_exact(const Counts& counts) {
  return counts.calls[kOpChunkMap] == 0;
}

}  // namespace quarl::report
