#include "report/analysis/suppressions.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace quarl::report {
namespace {

bool matches_at(const std::vector<std::string_view>& pieces, std::string_view text, bool to_end) {
  for (size_t index = 0; index < pieces.size(); ++index) {
    bool last = index + 1 == pieces.size();
    if (last && to_end) return text.ends_with(pieces[index]);
    size_t found = text.find(pieces[index]);
    if (found == std::string_view::npos) return false;
    text.remove_prefix(found + pieces[index].size());
  }
  return true;
}

std::vector<std::string_view> split_at_stars(std::string_view pattern) {
  std::vector<std::string_view> pieces;
  for (size_t star; (star = pattern.find('*')) != std::string_view::npos; pattern.remove_prefix(star + 1)) {
    pieces.push_back(pattern.substr(0, star));
  }
  pieces.push_back(pattern);
  return pieces;
}

}  // namespace

bool pattern_matches(std::string_view pattern, std::string_view text) {
  bool from_start = pattern.starts_with('^');
  if (from_start) pattern.remove_prefix(1);
  bool to_end = pattern.ends_with('$');
  if (to_end) pattern.remove_suffix(1);
  std::vector<std::string_view> pieces = split_at_stars(pattern);
  if (from_start && pieces.size() == 1 && to_end) return text == pattern;
  if (from_start) {
    if (!text.starts_with(pieces.front())) return false;
    text.remove_prefix(pieces.front().size());
    pieces.erase(pieces.begin());
  }
  return matches_at(pieces, text, to_end);
}

void Suppressions::load(const std::string& path) {
  constexpr std::string_view kPrefix = "leak:";
  std::ifstream file(path);
  if (!file) throw std::runtime_error(fmt::format("{}: cannot be read", path));
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    while (!line.empty() && isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    line.erase(0, std::min(line.find_first_not_of(" \t"), line.size()));
    if (line.empty() || line.front() == '#') continue;
    if (!line.starts_with(kPrefix) || line.size() == kPrefix.size()) {
      throw std::runtime_error(
          fmt::format("{}:{}: \"leak:PATTERN\" was expected, \"{}\" is there", path, number, line));
    }
    add(line.substr(kPrefix.size()));
  }
}

bool Suppressions::hides(const Frames& frames) const {
  auto shown = [&](const std::string& pattern) {
    return std::any_of(frames.begin(), frames.end(), [&](const Frame& frame) {
      return (!frame.function.empty() && pattern_matches(pattern, frame.function)) ||
             (!frame.file.empty() && pattern_matches(pattern, frame.file)) ||
             (!frame.module.empty() && pattern_matches(pattern, frame.module));
    });
  };
  return std::any_of(patterns_.begin(), patterns_.end(), shown);
}

}  // namespace quarl::report
