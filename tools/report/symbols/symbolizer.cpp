// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/symbolizer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "report/symbols/address_sample.h"
#include "report/symbols/return_place.h"

namespace quarl::report {
namespace {

constexpr std::array<std::string_view, 22> kEntries = {
    "malloc",         "calloc",         "realloc",         "reallocarray", "memalign", "aligned_alloc",
    "posix_memalign", "valloc",         "pvalloc",         "mmap",         "mmap64",   "__libc_malloc",
    "__libc_calloc",  "__libc_realloc", "__libc_memalign", "__malloc",     "__calloc", "__realloc",
    "__mmap",         "free",           "cfree",           "munmap"};

}  // namespace

bool is_allocation_entry(const Frame& frame) {
  if (base_name(frame.module).starts_with("libquarl")) return true;
  if (frame.nearest) return false;
  return std::find(kEntries.begin(), kEntries.end(), frame.function) != kEntries.end() ||
         frame.function.starts_with("operator new") || frame.function.starts_with("operator delete");
}

namespace {

// What a reader calls an entry that is folded away.
std::string entry_name(const Frame& frame) {
  return frame.function.empty() ? base_name(frame.module) : frame.function;
}

// Where in its file a byte lies that is mapped.
uint64_t offset_in(const Mapping& mapping, uint64_t address) {
  return address - mapping.start + mapping.offset;
}

}  // namespace

Symbolizer::Symbolizer(const Log& log, const Snapshot& snapshot, Desk& desk)
    : maps_(log.maps(snapshot)),
      desk_(desk),
      sample_(sample_addresses(log, snapshot)),
      past_(read_module_events(desk.events_of(log.file().path()), snapshot.header.pid, maps_.program()), desk) {}

const Frames& Symbolizer::frames(uint32_t address) {
  auto [position, added] = cache_.try_emplace(address);
  if (added) position->second = resolve(address);
  return position->second;
}

Frames Symbolizer::whole_trace(std::span<const uint32_t> addresses) {
  Frames trace;
  for (uint32_t address : addresses) {
    const Frames& found = frames(address);
    trace.insert(trace.end(), found.begin(), found.end());
  }
  return trace;
}

Frames Symbolizer::trace(std::span<const uint32_t> addresses) {
  Frames trace = whole_trace(addresses);
  auto first = std::find_if_not(trace.begin(), trace.end(), is_allocation_entry);
  if (first == trace.begin() || first == trace.end()) return trace;
  first->entry = entry_name(*std::prev(first));
  trace.erase(trace.begin(), first);
  return trace;
}

std::string Symbolizer::build_id(const std::string& path) {
  const SymbolFile* file = file_of(path).file;
  return file == nullptr ? "" : file->build_id();
}

Symbolizer::File& Symbolizer::file_of(const std::string& path) {
  auto [position, added] = files_.try_emplace(path);
  File& known = position->second;
  if (!added) return known;
  const std::vector<Mapping> mappings = maps_.of_file(path);
  const uint64_t begin = mappings.empty() ? 0 : mappings.front().start - mappings.front().offset;
  known.file = desk_.find(path, mappings, past_.build_id(path, begin));
  if (known.file != nullptr && is_other_build(*known.file, path)) known.file = nullptr;
  return known;
}

// In code that a compiler rearranged, a few return addresses follow calls all the same; in the code that ran, all do
// but for what a trace took from a stack without frame pointers, and for those into what lay there before. A single
// address says nothing of others.
bool Symbolizer::is_other_build(SymbolFile& file, const std::string& path) {
  size_t all = 0, wrong = 0;
  for (uint32_t address : sample_) {
    const Mapping* mapping = maps_.find(address - 1);
    if (mapping == nullptr || mapping->path != path) continue;
    ++all;
    const ReturnPlace place(&file, address, offset_in(*mapping, address - 1));
    if (place.landing() == Landing::kAstray && !resolve_past(address, {})) ++wrong;
  }
  if (wrong < 2 || wrong * 4 <= all) return false;
  desk_.warn(
      fmt::format("{} is another build than the {} of the log: {} of {} return addresses in it follow no call. Its "
                  "functions and lines are left out; give the files of the build that ran (--sysroot).",
                  file.path(), path, wrong, all));
  return true;
}

Frames Symbolizer::resolve(uint32_t address) {
  Frame frame;
  frame.address = address - 1;
  frame.offset = frame.address;
  const Mapping* mapping = maps_.find(frame.address);
  if (mapping != nullptr && is_file(*mapping)) return resolve_mapped(address, *mapping, frame);
  return resolve_past(address, frame).value_or(Frames{frame});
}

Frames Symbolizer::resolve_mapped(uint32_t address, const Mapping& mapping, Frame frame) {
  File& known = file_of(mapping.path);
  const ReturnPlace place(known.file, address, offset_in(mapping, frame.address));
  const Frame bare = frame;
  frame.module = mapping.path;
  frame.offset = place.offset - 1;
  frame.address = address - (place.thumb ? 1 : 0) - 1;
  if (known.file == nullptr) return {frame};
  const Landing landing = place.landing();
  if (landing != Landing::kAstray) return place.frames(frame, landing);
  if (auto past = resolve_past(address, bare)) return *past;
  if (!known.told) {
    desk_.warn(
        fmt::format("{}: a return address at offset 0x{:x} follows no call there, and is given without a name. "
                    "The file was rebuilt since, or the trace went astray in code without frame pointers.",
                    known.file->path(), place.offset));
  }
  known.told = true;
  return {frame};
}

// The last library whose code has a call there. Of one that the desk does not have only its name is known, and that
// only where nothing else lies between its start and the address.
std::optional<Frames> Symbolizer::resolve_past(uint32_t address, Frame frame) {
  for (const PastModules::Place& at : past_.at(address - 1)) {
    const ReturnPlace place(at.file, address, at.offset);
    frame.module = at.module->path;
    frame.offset = place.offset - 1;
    frame.address = address - (place.thumb ? 1 : 0) - 1;
    if (at.file == nullptr && lies_behind(*at.module, address)) return Frames{frame};
    const Landing landing = at.file != nullptr ? place.landing() : Landing::kAstray;
    if (landing != Landing::kAstray) return place.frames(frame, landing);
  }
  return std::nullopt;
}

bool Symbolizer::lies_behind(const ModuleEvent& module, uint32_t address) const {
  return std::none_of(maps_.all().begin(), maps_.all().end(),
                      [&](const Mapping& mapping) { return mapping.end > module.address && mapping.start < address; });
}

}  // namespace quarl::report
