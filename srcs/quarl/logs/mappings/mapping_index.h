// SPDX-License-Identifier: Apache-2.0
// Finds the record of a live mapping by the end of its region without walking all of them.
#pragma once

#include <cstdint>

#include "logs/mappings/page_move.h"
#include "state/hook_lock.h"

namespace quarl {

struct TraceInfoEntry;

// A hash table of entries with open addressing, keyed by the address behind the mapping. Both ways in which munmap
// matches a mapping (the same region, or an anonymous one with the same end) share that key. Among entries of one key
// the oldest is wanted; the entries' ages are the order in which they were added.
class MappingIndex {
 public:
  // Makes room for one entry more. False when there is none and no memory for a larger table.
  bool make_room() REQUIRES(hook_mutex);
  void add(TraceInfoEntry* entry) REQUIRES(hook_mutex);
  void remove(const TraceInfoEntry* entry) REQUIRES(hook_mutex);

  // The oldest that munmap(address, length) ends and that is not set aside; null when there is none.
  TraceInfoEntry* find(uint32_t address, uint32_t length) REQUIRES(hook_mutex);

  // An entry set aside keeps its age and is not found.
  void set_aside(const TraceInfoEntry* entry, bool aside) REQUIRES(hook_mutex);

  // Changes the size in an entry, which keeps its age.
  void resize(TraceInfoEntry* entry, uint32_t size) REQUIRES(hook_mutex);

  // Entries have moved.
  void follow(const PageMove& move) REQUIRES(hook_mutex);

  // The table keeps out of the range from then on. False when there is no memory elsewhere.
  bool leave(const AddressRange& range) REQUIRES(hook_mutex);

  void clear() REQUIRES(hook_mutex);

 private:
  struct Slot {
    TraceInfoEntry* entry;  // null: free
    uint32_t age;
    bool aside;
  };
  static constexpr uint32_t kFirstCapacity = 512;

  uint32_t home(uint32_t end) const;
  uint32_t step(uint32_t at) const { return (at + 1) & (capacity_ - 1); }
  uint32_t distance(uint32_t from, uint32_t to) const { return (to - from) & (capacity_ - 1); }
  uint32_t place_of(const TraceInfoEntry* entry) const;
  void insert(const Slot& slot);
  void erase(uint32_t hole);
  bool move_table(uint32_t capacity, const AddressRange& avoided) REQUIRES(hook_mutex);

  Slot first_[kFirstCapacity]{};  // the table of most programs: it costs no mapping
  Slot* slots_ = first_;
  uint32_t capacity_ = kFirstCapacity;  // a power of two
  uint32_t used_ = 0;                   // one slot at least is free: a search ends there
  uint32_t next_age_ = 0;
};

extern MappingIndex mapping_index GUARDED_BY(hook_mutex);

}  // namespace quarl
