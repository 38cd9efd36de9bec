#include "report/symbols/symbolizer.h"

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

bool is_allocation_entry(const Frame& frame) {
  if (base_name(frame.module).starts_with("libquarl")) return true;
  if (frame.nearest) return false;
  return std::find(kEntries.begin(), kEntries.end(), frame.function) != kEntries.end() ||
         frame.function.starts_with("operator new") || frame.function.starts_with("operator delete");
}

}  // namespace

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
  const SymbolFile* file = file_of(path);
  return file == nullptr ? "" : file->build_id();
}

SymbolFile* Symbolizer::file_of(const std::string& path) {
  auto [position, added] = files_.try_emplace(path, nullptr);
  if (added) position->second = desk_.find(path, maps_.of_file(path));
  return position->second;
}

// What is looked up is the call, which ends one byte before the return address. In Thumb code that address is odd.
Frames Symbolizer::resolve(uint32_t address) {
  Frame frame;
  frame.address = address - 1;
  frame.offset = frame.address;
  const Mapping* mapping = maps_.find(frame.address);
  if (mapping == nullptr || !is_file(*mapping)) return {frame};
  frame.module = mapping->path;
  SymbolFile* file = file_of(mapping->path);
  if (file != nullptr && file->is_arm()) frame.address = (address & ~1u) - 1;
  frame.offset = frame.address - mapping->start + mapping->offset;
  auto place = file == nullptr ? std::nullopt : file->address_of(frame.offset);
  return place ? file->resolve(*place, frame) : Frames{frame};
}

}  // namespace quarl::report
