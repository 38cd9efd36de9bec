#include "report/symbols/symbolizer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

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
  if (first != trace.end()) trace.erase(trace.begin(), first);
  return trace;
}

std::string Symbolizer::build_id(const std::string& path) {
  const SymbolFile* file = file_of(path).file;
  return file == nullptr ? "" : file->build_id();
}

Symbolizer::File& Symbolizer::file_of(const std::string& path) {
  auto [position, added] = files_.try_emplace(path);
  File& known = position->second;
  if (added) known.file = desk_.find(path, maps_.of_file(path));
  if (added && known.file != nullptr && is_other_build(*known.file, path)) known.file = nullptr;
  return known;
}

namespace {

// Of an address in a mapping; an odd one in ARM code is Thumb's.
struct ReturnPlace {
  bool thumb;
  uint64_t offset;  // in the file

  ReturnPlace(uint32_t address, const Mapping& mapping, bool arm)
      : thumb(arm && (address & 1) != 0), offset(address - (thumb ? 1 : 0) - mapping.start + mapping.offset) {}
};

// What a signal handler returns to is the start of a routine that the kernel entered; all else follows a call.
bool can_be_returned_to(const SymbolFile& file, const ReturnPlace& place) {
  if (file.call_ends_at(place.offset, place.thumb)) return true;
  auto address = file.address_of(place.offset);
  return address && file.function_starts_at(*address);
}

}  // namespace

// In code that a compiler rearranged, a few return addresses follow calls all the same; in the code that ran, all do
// but for what a trace took from a stack without frame pointers. A single address says nothing of others.
bool Symbolizer::is_other_build(const SymbolFile& file, const std::string& path) {
  size_t all = 0, wrong = 0;
  for (uint32_t address : sample_) {
    const Mapping* mapping = maps_.find(address - 1);
    if (mapping == nullptr || mapping->path != path) continue;
    ++all;
    if (!can_be_returned_to(file, ReturnPlace(address, *mapping, file.is_arm()))) ++wrong;
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
  if (mapping == nullptr || !is_file(*mapping)) return {frame};
  frame.module = mapping->path;
  return resolve_in(file_of(mapping->path), address, *mapping, frame);
}

// What is looked up is the call, which ends one byte before the return address.
Frames Symbolizer::resolve_in(File& known, uint32_t address, const Mapping& mapping, Frame frame) {
  const ReturnPlace place(address, mapping, known.file != nullptr && known.file->is_arm());
  frame.offset = place.offset - 1;
  frame.address = address - (place.thumb ? 1 : 0) - 1;
  if (known.file == nullptr) return {frame};
  const bool behind_call = known.file->call_ends_at(place.offset, place.thumb);
  if (!behind_call && !can_be_returned_to(*known.file, place)) {
    if (!known.told) {
      desk_.warn(
          fmt::format("{}: a return address at offset 0x{:x} follows no call there, and is given without a name. "
                      "The file was rebuilt since, or the trace went astray in code without frame pointers.",
                      known.file->path(), place.offset));
    }
    known.told = true;
    return {frame};
  }
  if (!behind_call) {
    ++frame.offset;
    ++frame.address;
  }
  auto at = known.file->address_of(frame.offset);
  return at ? known.file->resolve(*at, frame) : Frames{frame};
}

}  // namespace quarl::report
