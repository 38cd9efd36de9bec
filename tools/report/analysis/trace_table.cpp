#include "report/analysis/trace_table.h"

#include <algorithm>

namespace quarl::report {
namespace {

// Two addresses at a time: this runs for every allocation of a log.
uint64_t hash_of(std::span<const uint32_t> addresses) {
  constexpr uint64_t kFactor = 0xD6E8FEB86659FD93u;
  uint64_t hash = 0x9E3779B97F4A7C15u + addresses.size();
  size_t index = 0;
  for (; index + 1 < addresses.size(); index += 2) {
    hash = (hash ^ (uint64_t{addresses[index + 1]} << 32 | addresses[index])) * kFactor;
    hash ^= hash >> 29;
  }
  if (index < addresses.size()) hash = (hash ^ addresses[index]) * kFactor;
  return hash ^ (hash >> 32);
}

}  // namespace

TraceTable::TraceTable() : slots_(1024) {}

TraceId TraceTable::intern(std::span<const uint32_t> addresses) {
  uint64_t hash = hash_of(addresses);
  size_t mask = slots_.size() - 1;
  for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    if (slots_[slot] == 0) {
      slots_[slot] = static_cast<uint32_t>(entries_.size()) + 1;
      return add(hash, addresses);
    }
    TraceId id = slots_[slot] - 1;
    if (matches(entries_[id], hash, addresses)) return id;
  }
}

std::span<const uint32_t> TraceTable::addresses(TraceId id) const {
  return {words_.data() + entries_[id].first, entries_[id].depth};
}

bool TraceTable::matches(const Entry& entry, uint64_t hash, std::span<const uint32_t> addresses) const {
  return entry.hash == hash && entry.depth == addresses.size() &&
         std::equal(addresses.begin(), addresses.end(), words_.begin() + entry.first);
}

TraceId TraceTable::add(uint64_t hash, std::span<const uint32_t> addresses) {
  TraceId id = static_cast<TraceId>(entries_.size());
  entries_.push_back({hash, static_cast<uint32_t>(words_.size()), static_cast<uint32_t>(addresses.size())});
  words_.insert(words_.end(), addresses.begin(), addresses.end());
  if (entries_.size() * 2 > slots_.size()) grow();
  return id;
}

void TraceTable::grow() {
  slots_.assign(slots_.size() * 2, 0);
  size_t mask = slots_.size() - 1;
  for (size_t index = 0; index < entries_.size(); ++index) {
    size_t slot = entries_[index].hash & mask;
    while (slots_[slot] != 0) slot = (slot + 1) & mask;
    slots_[slot] = static_cast<uint32_t>(index) + 1;
  }
}

}  // namespace quarl::report
