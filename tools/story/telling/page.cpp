// SPDX-License-Identifier: Apache-2.0
#include "story/telling/page.h"

#include <fmt/color.h>
#include <fmt/format.h>

#include <algorithm>

namespace quarl::story {
namespace {

constexpr size_t kLabelWidth = 11;
constexpr size_t kWidestName = 60;  // a longer one moves its own place alone

std::string styled(const std::string& text, fmt::text_style style, bool colours) {
  return colours && !text.empty() ? fmt::format(style, "{}", text) : text;
}

// Bytes of the character at the front of the text; 0 when it is no UTF-8, or a control character.
size_t printable_length(std::string_view text) {
  auto byte = [&](size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U; };
  const unsigned first = byte(0);
  if (first < 0x80) return first >= 0x20 && first != 0x7f ? 1 : 0;
  const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || (first == 0xc2 && byte(1) < 0xa0)) return 0;
  for (size_t at = 1; at < length; ++at) {
    if ((byte(at) & 0xc0) != 0x80) return 0;
  }
  return length;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string safe;
  while (!text.empty()) {
    const size_t length = printable_length(text);
    safe += length == 0 ? "?" : text.substr(0, length);
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return safe;
}

std::string counted(uint64_t number, const std::string& noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

void Page::line(std::string label, std::string text, Places calls) {
  lines_.push_back({std::move(label), printable(text), std::move(calls)});
  for (Place& place : lines_.back().calls) place = {printable(place.name), printable(place.where)};
}

size_t Page::name_width() const {
  size_t width = 0;
  for (const Line& line : lines_) {
    for (const Place& place : line.calls) {
      if (!place.where.empty() && place.name.size() <= kWidestName) width = std::max(width, place.name.size());
    }
  }
  return width;
}

std::string Page::text(bool colours) const {
  const fmt::text_style loud = fmt::emphasis::bold | fmt::fg(fmt::terminal_color::red);
  const fmt::text_style place_style = fmt::fg(fmt::terminal_color::cyan);
  std::string text = fmt::format("quarl: {}: {}\n", printable(who_), styled(printable(head_), loud, colours));
  size_t width = name_width();
  for (const Line& line : lines_) {
    const size_t width_of_label = line.label.empty() || line.text.empty() ? 0 : kLabelWidth;
    std::string label = fmt::format("{:<{}}", line.label, width_of_label);
    text += fmt::format("  {}{}\n", styled(label, fmt::emphasis::bold, colours), line.text);
    for (const Place& place : line.calls) {
      std::string name = place.where.empty() ? place.name : fmt::format("{:<{}}   ", place.name, width);
      text += fmt::format("      {}{}\n", name, styled(place.where, place_style, colours));
    }
  }
  return text;
}

}  // namespace quarl::story
