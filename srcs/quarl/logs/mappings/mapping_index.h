// Finds the record of a live mapping by the end of its region without walking all of them. An index only: the list of
// entries in use stays the truth, and is walked when there is no memory for the index.
#pragma once

#include <cstdint>

#include "state/hook_lock.h"

namespace quarl {

struct TraceInfoEntry;

// A hash table of entries with open addressing, keyed by the address behind the mapping. Both ways in which munmap
// matches a mapping (the same region, or an anonymous one with the same end) share that key. Among entries of one key
// the oldest is wanted; the entries' ages are the order in which they were added.
class MappingIndex {
 public:
  void add(TraceInfoEntry* entry) REQUIRES(hook_mutex);
  void remove(TraceInfoEntry* entry) REQUIRES(hook_mutex);
  TraceInfoEntry* find(uint32_t address, uint32_t length) REQUIRES(hook_mutex);
  void clear() REQUIRES(hook_mutex);

 private:
  struct Slot {
    TraceInfoEntry* entry;  // null: never used since the last rebuild; kRemoved: used once
    uint32_t age;
  };

  Slot* home(uint32_t end) const;
  Slot* step(Slot* slot) const;
  bool grow() REQUIRES(hook_mutex);
  void insert(TraceInfoEntry* entry, uint32_t age);
  void drop_table();

  Slot* slots_ = nullptr;
  uint32_t capacity_ = 0;  // a power of two
  uint32_t filled_ = 0;    // slots that are not null
  uint32_t next_age_ = 0;
  bool complete_ = true;  // false once an entry could not be added: the list is walked instead
};

extern MappingIndex mapping_index GUARDED_BY(hook_mutex);

}  // namespace quarl
