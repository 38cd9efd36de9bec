// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/site_table.h"

#include <fmt/format.h>

#include <algorithm>

namespace quarl::report {
namespace {

// The trace as the desk sees it, so that two runs at other addresses give the same key.
std::string trace_key(const Frames& frames) {
  std::string key;
  for (const Frame& frame : frames) key += describe(frame) + "\n";
  return key;
}

// One line of source may ask in several ways.
void note_entry(Frames& site, const Frames& other) {
  if (site.empty() || site.front().entry == other.front().entry) return;
  constexpr std::string_view kOthers = " and others";
  std::string& entry = site.front().entry;
  if (!entry.ends_with(kOthers)) entry += kOthers;
}

std::string or_else(std::string text, const char* otherwise) {
  return text.empty() ? otherwise : text;
}

std::string name_in(Grouping grouping, const Frame& frame) {
  switch (grouping) {
    case Grouping::kFile:
      return or_else(frame.file, "(no source line)");
    case Grouping::kModule:
      return or_else(base_name(frame.module), "(in no mapped file)");
    case Grouping::kFunction:
      return name_of(frame);
    default:
      return describe(frame);
  }
}

}  // namespace

bool groups_by_trace(Grouping grouping) {
  return grouping != Grouping::kThread && grouping != Grouping::kSize;
}

SiteTable::TracePlace& SiteTable::place_of(TraceId trace) {
  if (trace >= places_.size()) places_.resize(traces_.size());
  TracePlace& place = places_[trace];
  if (place.known) return place;
  place.known = true;
  place.frames = symbolizer_.trace(traces_.addresses(trace));
  return place;
}

void SiteTable::add(const LiveEntry& entry) {
  add_part(entry.trace, entry.tid, entry.size, {entry.size, 1}, entry);
}

void SiteTable::add(TraceId trace, uint32_t tid, uint32_t size, const SiteSum& sum) {
  add_part(trace, tid, size, sum.usage, sum);
}

template <typename Part>
void SiteTable::add_part(TraceId trace, uint32_t tid, uint32_t size, const Usage& usage, const Part& part) {
  TracePlace& place = place_of(trace);
  total_ += usage;
  site_of(trace, tid, size, place.frames).add(part);
}

std::string SiteTable::key_of(uint32_t tid, uint32_t size, const Frames& frames) const {
  if (grouping_ == Grouping::kThread) return tid == 0 ? "(thread not recorded)" : fmt::format("{}", tid);
  if (grouping_ == Grouping::kSize) return fmt::format("{} bytes", size);
  if (frames.empty()) return kNoTrace;
  return grouping_ == Grouping::kTrace ? trace_key(frames) : name_in(grouping_, frames.front());
}

Site& SiteTable::site_of(TraceId trace, uint32_t tid, uint32_t size, const Frames& frames) {
  bool by_trace = groups_by_trace(grouping_);
  if (by_trace) {
    if (auto known = by_trace_.find(trace); known != by_trace_.end()) return sites_[known->second];
  }
  std::string key = key_of(tid, size, frames);
  auto [position, added] = by_key_.try_emplace(key, sites_.size());
  if (added) {
    Site& site = sites_.emplace_back();
    site.key = key;
    site.name = grouping_ == Grouping::kTrace ? site_name(frames) : key;
    if (grouping_ == Grouping::kTrace) site.frames = frames;
  } else {
    note_entry(sites_[position->second].frames, frames);
  }
  if (by_trace) by_trace_[trace] = position->second;
  return sites_[position->second];
}

void SiteTable::finish(Order order) {
  places_.clear();
  auto weight = [order](const Site& site) { return order == Order::kCount ? site.usage.count : site.usage.bytes; };
  std::sort(sites_.begin(), sites_.end(), [&](const Site& a, const Site& b) {
    return weight(a) != weight(b) ? weight(a) > weight(b) : a.key < b.key;
  });
}

}  // namespace quarl::report
