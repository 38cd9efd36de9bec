// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/trace_table.h"

namespace quarl::report {

TraceTable::TraceTable() : words_(1), slots_(1024) {}

Trace TraceTable::addresses(TraceId id) const {
  const uint32_t* entry = &words_[entries_[id]];
  return {entry + 2, entry[1]};
}

TraceId TraceTable::add(size_t slot, uint64_t hash, Trace trace) {
  TraceId id = static_cast<TraceId>(entries_.size());
  slots_[slot] = {tag_of(hash), static_cast<uint32_t>(words_.size())};
  entries_.push_back(slots_[slot].entry);
  words_.push_back(id);
  words_.push_back(static_cast<uint32_t>(trace.size()));
  words_.insert(words_.end(), trace.begin(), trace.end());
  if (entries_.size() * 4 > slots_.size()) grow();
  return id;
}

void TraceTable::grow() {
  slots_.assign(slots_.size() * 2, {});
  for (TraceId id = 0; id < entries_.size(); ++id) {
    uint64_t its_hash = hash(addresses(id));
    size_t slot = home(its_hash);
    while (slots_[slot].entry != 0) slot = next(slot);
    slots_[slot] = {tag_of(its_hash), entries_[id]};
  }
}

}  // namespace quarl::report
