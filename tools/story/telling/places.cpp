// SPDX-License-Identifier: Apache-2.0
#include "story/telling/places.h"

#include <fmt/format.h>

#include <algorithm>

#include "report/symbols/short_name.h"
#include "report/symbols/symbolizer.h"

namespace quarl::story {
namespace {

using report::Frame;
using report::Frames;

Place place_of(const Frame& frame) {
  if (frame.module.empty()) return {fmt::format("0x{:08x}", frame.offset), ""};
  std::string offset = fmt::format("{}+0x{:x}", report::base_name(frame.module), frame.offset);
  if (frame.function.empty() || frame.nearest) return {offset, ""};
  std::string name = report::short_name(report::name_of(frame));
  return {name, frame.file.empty() ? offset : report::source_of(frame)};
}

bool starts_threads(const Frame& frame) {
  std::string module = report::base_name(frame.module);
  const bool of_library = module.starts_with("libc.so") || module.starts_with("libpthread");
  return of_library &&
         (frame.nearest || frame.function == "start_thread" || frame.function.find("clone") != std::string::npos);
}

// What called main(), or a thread's first function, says nothing of the program.
void cut_behind_start(Frames& frames) {
  auto is_main = [](const Frame& frame) { return frame.function == "main" && !frame.nearest; };
  auto main = std::find_if(frames.begin(), frames.end(), is_main);
  if (main != frames.end()) frames.erase(main + 1, frames.end());
  if (std::all_of(frames.begin(), frames.end(), starts_threads)) return;
  while (starts_threads(frames.back())) frames.pop_back();
}

Places places_of(Frames frames) {
  cut_behind_start(frames);
  Places places;
  for (const Frame& frame : frames) places.push_back(place_of(frame));
  return places;
}

}  // namespace

// An odd return address in ARM code is Thumb's. What is looked up is the call, which ends a byte before the address.
Frames PlaceFinder::resolve(const Process& process, const TraceFrame& place, bool returned_to) {
  Frame frame;
  frame.offset = place.offset;
  auto module = place.module ? process.modules.find(*place.module) : process.modules.end();
  report::SymbolFile* file = nullptr;
  if (module != process.modules.end()) {
    frame.module = module->second.path;
    if (frame.module.starts_with('/')) file = desk_.find_build(frame.module, module->second.build_id);
  }
  if (file != nullptr && file->is_arm()) frame.offset &= ~uint64_t{1};
  if (returned_to && !frame.module.empty() && frame.offset != 0) --frame.offset;
  return file == nullptr ? Frames{frame} : file->resolve(frame.offset, frame);
}

Frames PlaceFinder::resolve(const Process& process, const Trace& trace) {
  Frames frames;
  for (const TraceFrame& frame : trace) {
    Frames found = resolve(process, frame, true);
    frames.insert(frames.end(), found.begin(), found.end());
  }
  return frames;
}

Places PlaceFinder::calls(const Process& process, const Trace& trace) {
  Frames frames = resolve(process, trace);
  auto first = std::find_if_not(frames.begin(), frames.end(), report::is_allocation_entry);
  if (first != frames.end()) frames.erase(frames.begin(), first);
  return places_of(std::move(frames));
}

Places PlaceFinder::crash(const Process& process, const std::optional<TraceFrame>& instruction, const Trace& trace) {
  Frames frames;
  if (instruction) frames = resolve(process, *instruction, false);
  Frames callers = resolve(process, trace);
  frames.insert(frames.end(), callers.begin(), callers.end());
  return places_of(std::move(frames));
}

std::vector<std::string> PlaceFinder::take_warnings() {
  const std::vector<std::string>& all = desk_.warnings();
  std::vector<std::string> fresh(all.begin() + static_cast<ptrdiff_t>(told_), all.end());
  told_ = all.size();
  return fresh;
}

}  // namespace quarl::story
