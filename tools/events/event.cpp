// SPDX-License-Identifier: Apache-2.0
#include "events/event.h"

namespace quarl::events {
namespace {

constexpr uint64_t kVersion = 1;
constexpr uint64_t kLargestTask = 1 << 22;  // PID_MAX_LIMIT of the kernel

std::optional<pid_t> task(const Fields& fields, const char* key) {
  auto number = fields.number(key);
  if (!number || *number == 0 || *number > kLargestTask) return std::nullopt;
  return static_cast<pid_t>(*number);
}

// The escape \uD8xx begins a pair that stands for one character.
bool is_high_surrogate(std::string_view escape) {
  constexpr std::string_view kHigh = "89abAB";
  return escape.size() >= 6 && escape[1] == 'u' && (escape[2] | 0x20) == 'd' && kHigh.find(escape[3]) != kHigh.npos;
}

// \udc80 to \udcff alone.
bool is_raw_byte(std::string_view escape) {
  constexpr std::string_view kUpper = "89abcdefABCDEF";
  return escape.size() >= 6 && escape[1] == 'u' && (escape[2] | 0x20) == 'd' && (escape[3] | 0x20) == 'c' &&
         kUpper.find(escape[4]) != kUpper.npos;
}

// A byte of a path that is no UTF-8 is escaped as half a pair, which the reader of JSON refuses: it stands as a
// character of the private range instead (Fields::text() makes the byte of it).
std::string with_private_bytes(std::string_view line) {
  std::string text(line);
  for (size_t at = text.find('\\'); at != std::string::npos && at + 1 < text.size(); at = text.find('\\', at)) {
    std::string_view escape = std::string_view(text).substr(at, 6);
    if (is_high_surrogate(escape)) {
      at += 12;
    } else if (is_raw_byte(escape)) {
      text.replace(at + 2, 2, "f7");
      at += 6;
    } else {
      at += 2;
    }
    if (at > text.size()) break;
  }
  return text;
}

}  // namespace

std::optional<Event> Event::parse(std::string_view line) {
  Event event;
  event.object_ = std::make_shared<const Json>(Json::parse(with_private_bytes(line), nullptr, false));
  if (!event.object_->is_object()) return std::nullopt;
  Fields fields = event.fields();
  auto pid = task(fields, "pid");
  event.kind_ = fields.text("event");
  if (!pid || event.kind_.empty() || fields.number("v") != kVersion) return std::nullopt;
  event.pid_ = *pid;
  event.tid_ = task(fields, "tid").value_or(*pid);
  return event;
}

}  // namespace quarl::events
