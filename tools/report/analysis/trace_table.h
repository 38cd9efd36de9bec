// Every distinct call trace once. Grows with the number of distinct traces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quarl::report {

using TraceId = uint32_t;  // counts from 0 in the order in which traces were first seen

class TraceTable {
 public:
  TraceTable();
  TraceId intern(std::span<const uint32_t> addresses);
  // Return addresses, innermost first.
  std::span<const uint32_t> addresses(TraceId id) const;
  size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    uint64_t hash;
    uint32_t first;  // index into words_
    uint32_t depth;
  };
  bool matches(const Entry& entry, uint64_t hash, std::span<const uint32_t> addresses) const;
  TraceId add(uint64_t hash, std::span<const uint32_t> addresses);
  void grow();

  std::vector<Entry> entries_;
  std::vector<uint32_t> words_;
  std::vector<uint32_t> slots_;  // entry index + 1, 0 when free; a power of two, at most half full
};

}  // namespace quarl::report
