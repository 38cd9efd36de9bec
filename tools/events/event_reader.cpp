// SPDX-License-Identifier: Apache-2.0
#include "events/event_reader.h"

namespace quarl::events {
namespace {

constexpr size_t kLongestLine = 65536;  // many times of what the interface allows
constexpr std::string_view kLineStart = R"({"v":)";

// A writer may have been stopped within a line; what the next one appends then stands behind that torso.
std::optional<Event> parse_line(std::string_view line) {
  auto event = Event::parse(line);
  size_t start = event ? 0 : line.rfind(kLineStart);
  if (event || start == 0 || start == std::string_view::npos) return event;
  return Event::parse(line.substr(start));
}

}  // namespace

void EventReader::feed(std::string_view bytes, const Take& take) {
  for (size_t start = 0; start < bytes.size();) {
    size_t end = bytes.find('\n', start);
    std::string_view piece = bytes.substr(start, end == std::string_view::npos ? end : end - start);
    overlong_ = overlong_ || partial_.size() + piece.size() > kLongestLine;
    if (overlong_) partial_.clear();
    if (!overlong_) partial_ += piece;
    if (end == std::string_view::npos) return;
    take_line(partial_, take);
    partial_.clear();
    overlong_ = false;
    start = end + 1;
  }
}

void EventReader::take_line(std::string_view line, const Take& take) {
  ++lines_;
  auto event = overlong_ ? std::nullopt : parse_line(line);
  if (event) {
    take(*event);
    return;
  }
  if (line.empty() && !overlong_) return;
  if (bad_lines_++ == 0) first_bad_line_ = lines_;
}

}  // namespace quarl::events
