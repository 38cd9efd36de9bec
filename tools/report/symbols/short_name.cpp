// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/short_name.h"

#include <string_view>

namespace quarl::report {
namespace {

constexpr size_t kLong = 60;

// Bytes of an operator's own sign behind "operator", 0 for an operator that is a word.
size_t sign_of_operator(std::string_view behind) {
  for (std::string_view sign : {"<<=", ">>=", "->*", "<=>", "<<", ">>", "<=", ">=", "->", "()", "<", ">"}) {
    if (behind.starts_with(sign)) return sign.size();
  }
  return 0;
}

bool ends_with_operator(std::string_view text) {
  constexpr std::string_view kWord = "operator";
  if (!text.ends_with(kWord)) return false;
  const size_t before = text.size() - kWord.size();
  return before == 0 || (isalnum(static_cast<unsigned char>(text[before - 1])) == 0 && text[before - 1] != '_');
}

// What stands between `open` and `close`, nested ones too, becomes "...". "(anonymous namespace)" stays.
std::string without_contents(std::string_view name, char open, char close) {
  std::string text;
  int depth = 0;
  for (size_t at = 0; at < name.size(); ++at) {
    if (depth == 0 && ends_with_operator(text)) {
      const size_t sign = sign_of_operator(name.substr(at));
      text += name.substr(at, sign);
      at += sign;
      if (at >= name.size()) break;
    }
    constexpr std::string_view kAnonymous = "(anonymous namespace)";
    if (depth == 0 && name.substr(at).starts_with(kAnonymous)) {
      text += kAnonymous;
      at += kAnonymous.size() - 1;
      continue;
    }
    const char c = name[at];
    const bool arrow = c == '>' && at > 0 && name[at - 1] == '-';
    if (c == close && depth > 0 && !arrow && --depth == 0) text += at > 0 && name[at - 1] == open ? "" : "...";
    if (depth == 0) text += c;
    if (c == open) ++depth;
  }
  return depth == 0 ? text : std::string(name);
}

}  // namespace

std::string short_name(const std::string& name) {
  if (name.size() <= kLong) return name;
  std::string text = without_contents(name, '<', '>');
  return text.size() <= kLong ? text : without_contents(text, '(', ')');
}

}  // namespace quarl::report
