// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/suppressions.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "report/analysis/default_rules.h"

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

std::string_view trimmed(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r\n\v\f";
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  return line.substr(0, line.find_last_not_of(kBlanks) + 1);
}

// Of a line "leak:PATTERN"; empty when it is none.
std::string_view pattern_in(std::string_view line) {
  constexpr std::string_view kPrefix = "leak:";
  return line.starts_with(kPrefix) ? trimmed(line.substr(kPrefix.size())) : std::string_view();
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
  std::ifstream file(path);
  if (!file) throw std::runtime_error(fmt::format("{}: cannot be read", path));
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    const std::string_view text = trimmed(line);
    if (text.empty() || text.front() == '#') continue;
    const std::string_view pattern = pattern_in(text);
    if (pattern.empty()) {
      throw std::runtime_error(
          fmt::format("{}:{}: \"leak:PATTERN\" was expected, \"{}\" is there", path, number, text));
    }
    patterns_.emplace_back(pattern);
  }
}

Hiding Suppressions::hiding_of(const Frames& frames) const {
  if (user_hides(frames)) return Hiding::kByUser;
  return defaults_ && default_rule_of(frames) != nullptr ? Hiding::kByDefault : Hiding::kNone;
}

bool Suppressions::user_hides(const Frames& frames) const {
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
