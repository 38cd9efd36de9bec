// SPDX-License-Identifier: Apache-2.0
#include "logs/mappings/unmappings.h"

#include "logs/mappings/mapping_index.h"
#include "logs/mappings/mapping_records.h"
#include "platform/system.h"
#include "platform/thread_cache.h"

namespace quarl {

constinit Unmappings unmappings;

namespace {

constexpr int kForkPatience = 100;  // milliseconds

Unmapping facts_of(const TraceInfoEntry* entry) {
  return {entry->record.from_file != 0, entry->record.size, -1};
}

}  // namespace

// A thread that left its hook for good (a signal handler jumped out of it) is found under way when it comes again.
int Unmappings::free_place() {
  for (int place = 0; place < kMost; ++place) {
    UnderWay& other = under_way_[place];
    if (other.entry != nullptr && other.task != current_tid()) continue;
    if (other.entry != nullptr) mapping_index.set_aside(other.entry, false);
    return place;
  }
  return -1;
}

Unmapping Unmappings::begin(uint32_t address, uint32_t length) {
  TraceInfoEntry* entry = find_mapping(address, length);
  if (entry == nullptr) return {false, length, -1};
  Unmapping unmapping = facts_of(entry);
  unmapping.place = free_place();
  if (unmapping.place < 0) {  // too early out of the list is better than too late
    release_mapping_entry(entry);
    return unmapping;
  }
  under_way_[unmapping.place] = {entry, current_tid(), kUnknown};
  mapping_index.set_aside(entry, true);
  return unmapping;
}

void Unmappings::tell_result(const Unmapping& unmapping, bool unmapped) {
  if (unmapping.place < 0) return;
  __atomic_store_n(&under_way_[unmapping.place].result, unmapped ? kUnmapped : kFailed, __ATOMIC_RELEASE);
}

void Unmappings::end(const Unmapping& unmapping, bool unmapped) {
  if (unmapping.place < 0) return;
  TraceInfoEntry*& entry = under_way_[unmapping.place].entry;
  if (entry == nullptr) return;  // the records are gone: the process ends
  if (unmapped) {
    release_mapping_entry(entry);
  } else {
    mapping_index.set_aside(entry, false);
  }
  entry = nullptr;
}

void Unmappings::await_results() {
  for (UnderWay& other : under_way_) {
    if (other.entry == nullptr || other.task == current_tid()) continue;
    for (int waited = 0; waited < kForkPatience; ++waited) {
      if (__atomic_load_n(&other.result, __ATOMIC_ACQUIRE) != kUnknown) break;
      sys::futex_wait_for(&other.result, kUnknown, 1);
    }
    uint32_t unknown = kUnknown;
    __atomic_compare_exchange_n(&other.result, &unknown, kNeverKnown, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
  }
}

bool Unmappings::end_left_behind(int task, Unmapping* unmapping, bool* unmapped) {
  for (int place = 0; place < kMost; ++place) {
    const UnderWay& other = under_way_[place];
    if (other.entry == nullptr || other.task == task) continue;
    *unmapping = facts_of(other.entry);
    unmapping->place = place;
    *unmapped = other.result == kUnmapped;
    end(*unmapping, *unmapped);
    return true;
  }
  return false;
}

void Unmappings::follow(const PageMove& move) {
  for (UnderWay& other : under_way_) move.follow(&other.entry);
}

void Unmappings::clear() {
  for (UnderWay& other : under_way_) other.entry = nullptr;
}

}  // namespace quarl
