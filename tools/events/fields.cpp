// SPDX-License-Identifier: Apache-2.0
#include "events/fields.h"

#include <charconv>

namespace quarl::events {
namespace {

constexpr double kNever = 1e15;  // seconds, and whole ones fit into a double

// All of the text; false for anything else in it.
template <typename Number>
bool read_hexadecimal(std::string_view text, Number& number) {
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  return error == std::errc() && end == text.data() + text.size() && !text.empty();
}

// U+F780 to U+F7FF stand for the bytes 80 to ff: EF 9E 80 to EF 9F BF.
std::string with_raw_bytes(std::string text) {
  for (size_t at = text.find('\xef'); at != std::string::npos && at + 2 < text.size(); at = text.find('\xef', at + 1)) {
    const auto middle = static_cast<unsigned char>(text[at + 1]), last = static_cast<unsigned char>(text[at + 2]);
    if (middle == 0x9e || middle == 0x9f)
      text.replace(at, 3, 1, static_cast<char>((middle & 1) << 6 | 0x80 | (last & 0x3f)));
  }
  return text;
}

std::optional<TraceFrame> frame_of(const Json& pair) {
  if (!pair.is_array() || pair.size() != 2 || !pair[1].is_number_unsigned()) return std::nullopt;
  TraceFrame frame{std::nullopt, pair[1].get<uint64_t>()};
  if (pair[0].is_number_unsigned()) frame.module = pair[0].get<uint64_t>();
  return frame;
}

}  // namespace

const Json* Fields::find(const char* key) const {
  auto position = object_.find(key);
  return position == object_.end() ? nullptr : &*position;
}

std::string Fields::text(const char* key) const {
  const Json* value = find(key);
  return value != nullptr && value->is_string() ? with_raw_bytes(value->get<std::string>()) : "";
}

std::optional<uint64_t> Fields::number(const char* key) const {
  const Json* value = find(key);
  if (value == nullptr || !value->is_number_unsigned()) return std::nullopt;
  return value->get<uint64_t>();
}

std::optional<double> Fields::time(const char* key) const {
  const Json* value = find(key);
  const double seconds = value != nullptr && value->is_number() ? value->get<double>() : -1;
  return seconds >= 0 && seconds < kNever ? std::optional(seconds) : std::nullopt;
}

std::optional<int64_t> Fields::distance(const char* key) const {
  const Json* value = find(key);
  if (value == nullptr || !value->is_number_integer()) return std::nullopt;
  return value->get<int64_t>();
}

std::optional<uint32_t> Fields::address(const char* key) const {
  std::string digits = text(key);
  uint32_t address = 0;
  if (!digits.starts_with("0x") || !read_hexadecimal(std::string_view(digits).substr(2), address)) return std::nullopt;
  return address;
}

bool Fields::flag(const char* key) const {
  const Json* value = find(key);
  return value != nullptr && value->is_boolean() && value->get<bool>();
}

Bytes Fields::bytes(const char* key) const {
  std::string digits = text(key);
  Bytes bytes;
  for (size_t at = 0; at + 2 <= digits.size(); at += 2) {
    uint8_t byte = 0;
    if (!read_hexadecimal(std::string_view(digits).substr(at, 2), byte)) return {};
    bytes.push_back(byte);
  }
  return bytes;
}

std::optional<TraceFrame> Fields::frame(const char* key) const {
  const Json* value = find(key);
  return value == nullptr ? std::nullopt : frame_of(*value);
}

Trace Fields::trace(const char* key) const {
  const Json* value = find(key);
  Trace trace;
  if (value == nullptr || !value->is_array()) return trace;
  for (const Json& pair : *value) {
    if (auto frame = frame_of(pair)) trace.push_back(*frame);
  }
  return trace;
}

std::optional<Fields> Fields::object(const char* key) const {
  const Json* value = find(key);
  return value != nullptr && value->is_object() ? std::optional(Fields(*value)) : std::nullopt;
}

std::vector<Fields> Fields::objects(const char* key) const {
  const Json* value = find(key);
  std::vector<Fields> objects;
  if (value == nullptr || !value->is_array()) return objects;
  for (const Json& element : *value) {
    if (element.is_object()) objects.emplace_back(element);
  }
  return objects;
}

}  // namespace quarl::events
