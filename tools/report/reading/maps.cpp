// SPDX-License-Identifier: Apache-2.0
#include "report/reading/maps.h"

#include <algorithm>
#include <charconv>

namespace quarl::report {
namespace {

// Takes the hexadecimal number at the front of `text` and the `end` character behind it.
bool take_hex(std::string_view& text, char end, uint64_t& value) {
  auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc() || stop == text.data() + text.size() || *stop != end) return false;
  text.remove_prefix(static_cast<size_t>(stop - text.data()) + 1);
  return true;
}

// Skips one blank-delimited word and the blanks behind it.
void skip_word(std::string_view& text) {
  text.remove_prefix(std::min(text.find(' '), text.size()));
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

std::string without_deleted_mark(std::string_view path) {
  constexpr std::string_view kMark = " (deleted)";
  if (path.ends_with(kMark)) path.remove_suffix(kMark.size());
  return std::string(path);
}

bool parse_line(std::string_view line, Mapping& mapping) {
  if (!take_hex(line, '-', mapping.start) || !take_hex(line, ' ', mapping.end)) return false;
  if (mapping.start >= mapping.end || mapping.end > (uint64_t{1} << 32) || line.size() < 5) return false;
  mapping.executable = line[2] == 'x';
  skip_word(line);
  if (!take_hex(line, ' ', mapping.offset)) return false;
  skip_word(line);  // device
  skip_word(line);  // inode
  mapping.path = without_deleted_mark(line);
  return true;
}

}  // namespace

Maps Maps::parse(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  Maps maps;
  for (size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1)) {
    Mapping mapping;
    if (!parse_line(text.substr(0, end), mapping)) break;
    if (!maps.mappings_.empty() && mapping.start < maps.mappings_.back().end) break;
    maps.mappings_.push_back(std::move(mapping));
  }
  return maps;
}

const Mapping* Maps::find(uint32_t address) const {
  auto behind = std::upper_bound(mappings_.begin(), mappings_.end(), address,
                                 [](uint32_t value, const Mapping& mapping) { return value < mapping.start; });
  if (behind == mappings_.begin()) return nullptr;
  const Mapping& candidate = *std::prev(behind);
  return address < candidate.end ? &candidate : nullptr;
}

std::vector<Mapping> Maps::of_file(const std::string& path) const {
  std::vector<Mapping> found;
  std::copy_if(mappings_.begin(), mappings_.end(), std::back_inserter(found),
               [&](const Mapping& mapping) { return mapping.path == path; });
  return found;
}

std::string Maps::program() const {
  auto found = std::find_if(mappings_.begin(), mappings_.end(), [](const Mapping& mapping) {
    return mapping.executable && is_file(mapping) && base_name(mapping.path).find(".so") == std::string::npos;
  });
  return found == mappings_.end() ? "" : found->path;
}

bool Maps::operator==(const Maps& other) const {
  return std::equal(mappings_.begin(), mappings_.end(), other.mappings_.begin(), other.mappings_.end(),
                    [](const Mapping& a, const Mapping& b) {
                      return a.start == b.start && a.end == b.end && a.offset == b.offset && a.path == b.path;
                    });
}

bool is_file(const Mapping& mapping) {
  return !mapping.path.empty() && mapping.path.front() == '/';
}

std::string base_name(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace quarl::report
