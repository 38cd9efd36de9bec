// SPDX-License-Identifier: Apache-2.0
// Every distinct call trace once. Grows with the number of distinct traces. Inline, because it runs for every
// allocation of a log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace quarl::report {

using TraceId = uint32_t;                 // counts from 0 in the order in which traces were first seen
using Trace = std::span<const uint32_t>;  // return addresses, innermost first; at most kMaxTrace of them

class TraceTable {
 public:
  TraceTable();
  TraceId intern(Trace trace) { return intern(trace, hash(trace)); }
  Trace addresses(TraceId id) const;
  size_t size() const { return entries_.size(); }

  // For those who look up many traces at once: intern() in parts. The memory of each part is to be brought near some
  // time before the next part needs it.
  static uint64_t hash(Trace trace);
  void prefetch_slot(uint64_t hash) const { __builtin_prefetch(&slots_[home(hash)]); }
  void prefetch_entry(uint64_t hash) const { __builtin_prefetch(&words_[slots_[home(hash)].entry]); }
  TraceId intern(Trace trace, uint64_t hash);

 private:
  struct Slot {
    uint32_t tag;    // the upper half of the hash, so that few other traces are looked at
    uint32_t entry;  // index into words_, 0 when free
  };
  static uint64_t pair_at(const uint32_t* addresses);
  static uint32_t tag_of(uint64_t hash) { return static_cast<uint32_t>(hash >> 32); }
  size_t home(uint64_t hash) const { return hash & (slots_.size() - 1); }
  size_t next(size_t slot) const { return (slot + 1) & (slots_.size() - 1); }
  bool matches(uint32_t entry, Trace trace) const;
  TraceId add(size_t slot, uint64_t hash, Trace trace);
  void grow();

  std::vector<uint32_t> words_;    // one that belongs to nobody, then the entries: id, depth, addresses
  std::vector<uint32_t> entries_;  // index into words_, by id
  std::vector<Slot> slots_;        // a power of two, at most a quarter full, so that few searches go further
};

inline uint64_t TraceTable::pair_at(const uint32_t* addresses) {
  uint64_t pair;
  memcpy(&pair, addresses, sizeof(pair));
  return pair;
}

// Four addresses with one multiplication whose halves are folded together.
inline uint64_t TraceTable::hash(Trace trace) {
  constexpr uint64_t kFactor = 0x9E3779B97F4A7C15u;
  constexpr uint64_t kOther = 0xD6E8FEB86659FD93u;
  auto mix = [](uint64_t a, uint64_t b) {
    auto product = static_cast<unsigned __int128>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
  };
  uint64_t hash = kFactor + trace.size();
  const uint32_t* next = trace.data();
  size_t left = trace.size();
  for (; left >= 4; left -= 4, next += 4) hash = mix(pair_at(next) ^ hash, pair_at(next + 2) ^ kOther);
  for (; left != 0; --left, ++next) hash = mix(hash ^ *next, kOther);
  return mix(hash, kFactor);
}

inline TraceId TraceTable::intern(Trace trace, uint64_t hash) {
  for (size_t slot = home(hash);; slot = next(slot)) {
    uint32_t entry = slots_[slot].entry;
    if (entry == 0) return add(slot, hash, trace);
    if (slots_[slot].tag == tag_of(hash) && matches(entry, trace)) return words_[entry];
  }
}

inline bool TraceTable::matches(uint32_t entry, Trace trace) const {
  const uint32_t* words = &words_[entry];
  if (words[1] != trace.size()) return false;
  const uint32_t* addresses = words + 2;
  size_t index = 0;
  for (; index + 2 <= trace.size(); index += 2) {
    if (pair_at(trace.data() + index) != pair_at(addresses + index)) return false;
  }
  return index == trace.size() || trace[index] == addresses[index];
}

}  // namespace quarl::report
