// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/live_mappings.h"

#include <algorithm>

namespace quarl::report {
namespace {

uint32_t end_of(const LiveEntry& entry) {
  return entry.address + entry.size;
}

void erase_one(auto& index, uint32_t key, auto position) {
  auto [first, last] = index.equal_range(key);
  index.erase(std::find_if(first, last, [&](const auto& item) { return item.second == position; }));
}

}  // namespace

LiveMapping& LiveMappings::insert(const LiveEntry& entry) {
  Position position = mappings_.insert(mappings_.end(), {entry});
  by_start_.emplace(entry.address, position);
  by_end_.emplace(end_of(entry), position);
  return *position;
}

std::optional<LiveMapping> LiveMappings::remove(uint32_t address, uint32_t length) {
  auto [first, last] = by_end_.equal_range(address + length);
  auto found = std::find_if(first, last, [&](const auto& item) {
    const LiveEntry& entry = item.second->entry;
    return entry.address == address || !entry.from_file;
  });
  if (found == last) return std::nullopt;
  LiveMapping removed = *found->second;
  erase(found->second);
  return removed;
}

LiveMapping* LiveMappings::containing(uint32_t address) {
  auto behind = by_start_.upper_bound(address);
  if (behind == by_start_.begin()) return nullptr;
  LiveMapping& mapping = *std::prev(behind)->second;
  bool inside = address - mapping.entry.address < mapping.entry.size;
  return inside && !mapping.entry.from_file ? &mapping : nullptr;
}

void LiveMappings::erase(Position position) {
  erase_one(by_start_, position->entry.address, position);
  erase_one(by_end_, end_of(position->entry), position);
  mappings_.erase(position);
}

}  // namespace quarl::report
