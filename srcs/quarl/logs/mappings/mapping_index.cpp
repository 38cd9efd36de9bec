#include "logs/mappings/mapping_index.h"

#include <sys/mman.h>

#include "logs/mappings/mapping_records.h"
#include "state/own_memory.h"
#include "state/settings.h"

namespace quarl {

constinit MappingIndex mapping_index;

namespace {

constexpr uint32_t kFirstCapacity = 512;

TraceInfoEntry* removed_mark() {
  return reinterpret_cast<TraceInfoEntry*>(1);
}

uint32_t end_of(const TraceInfoEntry* entry) {
  return entry->record.start_addr + entry->record.size;
}

// True when munmap(address, length) ends this mapping.
bool ends(const TraceInfoEntry* entry, uint32_t address, uint32_t length) {
  const OpRecord& record = entry->record;
  if (record.start_addr == address) return record.size == length;
  return record.from_file == 0 && end_of(entry) == address + length;
}

TraceInfoEntry* walk(uint32_t address, uint32_t length) {
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) {
    if (ends(entry, address, length)) return entry;
  }
  return nullptr;
}

}  // namespace

MappingIndex::Slot* MappingIndex::home(uint32_t end) const {
  return slots_ + ((end >> 12) * 2654435761U >> 7 & (capacity_ - 1));
}

MappingIndex::Slot* MappingIndex::step(Slot* slot) const {
  return slot + 1 == slots_ + capacity_ ? slots_ : slot + 1;
}

void MappingIndex::insert(TraceInfoEntry* entry, uint32_t age) {
  Slot* slot = home(end_of(entry));
  while (slot->entry != nullptr) slot = step(slot);
  *slot = {entry, age};
  ++filled_;
}

void MappingIndex::drop_table() {
  if (slots_ != nullptr) unmap_own(slots_, capacity_ * sizeof(Slot));
  slots_ = nullptr;
  capacity_ = filled_ = 0;
}

// A new table twice as large as what is live needs, filled from the list in its order.
bool MappingIndex::grow() {
  uint32_t live = 0;
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) ++live;
  uint32_t capacity = kFirstCapacity;
  while (capacity < live * 4) capacity *= 2;
  void* memory = map_own(capacity * sizeof(Slot));
  if (memory == MAP_FAILED) return false;
  drop_table();
  slots_ = static_cast<Slot*>(memory);
  capacity_ = capacity;
  next_age_ = 0;
  for (TraceInfoEntry* entry = useed_head; entry != nullptr; entry = entry->next) insert(entry, next_age_++);
  return true;
}

void MappingIndex::add(TraceInfoEntry* entry) {
  if (!complete_) return;
  if (filled_ + 1 <= capacity_ / 2) {
    insert(entry, next_age_++);
  } else {
    complete_ = grow();  // the entry is on the list already
  }
}

void MappingIndex::remove(TraceInfoEntry* entry) {
  if (!complete_ || capacity_ == 0) return;
  for (Slot* slot = home(end_of(entry)); slot->entry != nullptr; slot = step(slot)) {
    if (slot->entry != entry) continue;
    slot->entry = removed_mark();
    return;
  }
}

TraceInfoEntry* MappingIndex::find(uint32_t address, uint32_t length) {
  if (!complete_) return walk(address, length);
  if (capacity_ == 0) return nullptr;
  Slot* oldest = nullptr;
  for (Slot* slot = home(address + length); slot->entry != nullptr; slot = step(slot)) {
    if (slot->entry == removed_mark() || !ends(slot->entry, address, length)) continue;
    if (oldest == nullptr || slot->age < oldest->age) oldest = slot;
  }
  return oldest != nullptr ? oldest->entry : nullptr;
}

void MappingIndex::clear() {
  drop_table();
  complete_ = true;
}

}  // namespace quarl
