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

bool is_control(std::string_view text, size_t at) {
  auto byte = static_cast<unsigned char>(text[at]);
  if (byte < 0x20 || byte == 0x7f) return true;
  // U+0080 to U+009F: C2 80 to C2 9F.
  return byte == 0xc2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xa0;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string safe;
  for (size_t at = 0; at < text.size(); ++at) {
    bool control = is_control(text, at);
    if (control && static_cast<unsigned char>(text[at]) == 0xc2) ++at;
    safe += control ? '?' : text[at];
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
    std::string label = line.label.empty() ? "" : fmt::format("{:<{}}", line.label, kLabelWidth);
    text += fmt::format("  {}{}\n", styled(label, fmt::emphasis::bold, colours), line.text);
    for (const Place& place : line.calls) {
      std::string name = place.where.empty() ? place.name : fmt::format("{:<{}}   ", place.name, width);
      text += fmt::format("      {}{}\n", name, styled(place.where, place_style, colours));
    }
  }
  return text;
}

}  // namespace quarl::story
