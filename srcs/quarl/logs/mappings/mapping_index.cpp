// SPDX-License-Identifier: Apache-2.0
#include "logs/mappings/mapping_index.h"

#include <string.h>
#include <sys/mman.h>

#include "logs/mappings/mapping_records.h"
#include "state/own_memory.h"

namespace quarl {

constinit MappingIndex mapping_index;

namespace {

uint32_t end_of(const TraceInfoEntry* entry) {
  return entry->record.start_addr + entry->record.size;
}

// True when munmap(address, length) ends this mapping.
bool ends(const TraceInfoEntry* entry, uint32_t address, uint32_t length) {
  const OpRecord& record = entry->record;
  if (record.start_addr == address) return record.size == length;
  return record.from_file == 0 && end_of(entry) == address + length;
}

// The order of ages lasts over 2^31 mappings.
bool older(uint32_t age, uint32_t other) {
  return static_cast<int32_t>(age - other) < 0;
}

}  // namespace

uint32_t MappingIndex::home(uint32_t end) const {
  return (end >> 12) * 2654435761U >> 7 & (capacity_ - 1);
}

// Of an entry that is in the table.
uint32_t MappingIndex::place_of(const TraceInfoEntry* entry) const {
  uint32_t at = home(end_of(entry));
  while (slots_[at].entry != entry) at = step(at);
  return at;
}

void MappingIndex::insert(const Slot& slot) {
  uint32_t at = home(end_of(slot.entry));
  while (slots_[at].entry != nullptr) at = step(at);
  slots_[at] = slot;
  ++used_;
}

// An entry behind the hole moves into it unless a search for it begins behind the hole.
void MappingIndex::erase(uint32_t hole) {
  for (uint32_t at = step(hole); slots_[at].entry != nullptr; at = step(at)) {
    if (distance(home(end_of(slots_[at].entry)), at) < distance(hole, at)) continue;
    slots_[hole] = slots_[at];
    hole = at;
  }
  slots_[hole] = {};
  --used_;
}

bool MappingIndex::move_table(uint32_t capacity, const AddressRange& avoided) {
  void* memory = map_guarded(capacity * sizeof(Slot), avoided);
  if (memory == MAP_FAILED) return false;
  Slot* const old = slots_;
  const uint32_t old_capacity = capacity_;
  slots_ = static_cast<Slot*>(memory);
  capacity_ = capacity;
  used_ = 0;
  for (const Slot* slot = old; slot != old + old_capacity; ++slot) {
    if (slot->entry != nullptr) insert(*slot);
  }
  if (old != first_) unmap_guarded(old, old_capacity * sizeof(Slot), avoided);
  return true;
}

bool MappingIndex::make_room() {
  return used_ < capacity_ / 2 || move_table(capacity_ * 2, {}) || used_ + 1 < capacity_;
}

void MappingIndex::add(TraceInfoEntry* entry) {
  insert({entry, next_age_++, false});
}

void MappingIndex::remove(const TraceInfoEntry* entry) {
  erase(place_of(entry));
}

TraceInfoEntry* MappingIndex::find(uint32_t address, uint32_t length) {
  const Slot* oldest = nullptr;
  for (uint32_t at = home(address + length); slots_[at].entry != nullptr; at = step(at)) {
    const Slot& slot = slots_[at];
    if (slot.aside || !ends(slot.entry, address, length)) continue;
    if (oldest == nullptr || older(slot.age, oldest->age)) oldest = &slot;
  }
  return oldest != nullptr ? oldest->entry : nullptr;
}

void MappingIndex::set_aside(const TraceInfoEntry* entry, bool aside) {
  slots_[place_of(entry)].aside = aside;
}

void MappingIndex::resize(TraceInfoEntry* entry, uint32_t size) {
  const uint32_t at = place_of(entry);
  const Slot slot = slots_[at];
  erase(at);
  entry->record.size = size;
  insert(slot);
}

void MappingIndex::follow(const PageMove& move) {
  for (Slot* slot = slots_; slot != slots_ + capacity_; ++slot) move.follow(&slot->entry);
}

bool MappingIndex::leave(const AddressRange& range) {
  if (slots_ == first_ || !range.overlaps(guarded_range(slots_, capacity_ * sizeof(Slot)))) return true;
  return move_table(capacity_, range);
}

void MappingIndex::clear() {
  if (slots_ != first_) unmap_guarded(slots_, capacity_ * sizeof(Slot), {});
  slots_ = first_;
  capacity_ = kFirstCapacity;
  used_ = 0;
  memset(first_, 0, sizeof first_);
}

}  // namespace quarl
