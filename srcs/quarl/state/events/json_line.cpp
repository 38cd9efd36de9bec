// SPDX-License-Identifier: Apache-2.0
#include "state/events/json_line.h"

#include <string.h>

namespace quarl {

void JsonLine::begin() {
  size_ = 0;
  depth_ = left_out_ = 0;
  data_[size_++] = '{';
}

// Room is kept for what closes the line.
void JsonLine::put(char c) {
  if (size_ < limit_) {
    data_[size_++] = c;
  } else {
    whole_ = false;
  }
}

void JsonLine::put_text(const char* text) {
  while (*text != '\0') put(*text++);
}

void JsonLine::put_number(uint64_t value, unsigned base, int digits) {
  char text[24];
  int count = 0;
  do {
    text[count++] = "0123456789abcdef"[value % base];
    value /= base;
  } while (value != 0 || count < digits);
  while (count > 0) put(text[--count]);
}

bool JsonLine::begin_value(const char* key) {
  whole_ = left_out_ == 0;
  value_start_ = size_;
  limit_ = kMost - 2 - static_cast<size_t>(depth_);
  const char last = data_[size_ - 1];
  if (last != '{' && last != '[') put(',');
  if (key != nullptr) {
    put('"');
    put_text(key);
    put_text("\":");
  }
  return whole_;
}

bool JsonLine::end_value() {
  if (!whole_) size_ = value_start_;
  return whole_;
}

JsonLine& JsonLine::number(const char* key, uint64_t value) {
  if (begin_value(key)) put_number(value, 10);
  end_value();
  return *this;
}

JsonLine& JsonLine::integer(const char* key, int64_t value) {
  if (begin_value(key)) {
    if (value < 0) put('-');
    put_number(value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value), 10);
  }
  end_value();
  return *this;
}

JsonLine& JsonLine::time(const char* key, uint64_t seconds, uint32_t microseconds) {
  if (begin_value(key)) {
    put_number(seconds, 10);
    put('.');
    put_number(microseconds, 10, 6);
  }
  end_value();
  return *this;
}

JsonLine& JsonLine::flag(const char* key, bool value) {
  if (begin_value(key)) put_text(value ? "true" : "false");
  end_value();
  return *this;
}

JsonLine& JsonLine::address(const char* key, uint32_t value) {
  if (begin_value(key)) {
    put_text("\"0x");
    put_number(value, 16);
    put('"');
  }
  end_value();
  return *this;
}

JsonLine& JsonLine::bytes(const char* key, const void* data, size_t size) {
  if (begin_value(key)) {
    put('"');
    for (size_t i = 0; i < size; ++i) put_number(static_cast<const unsigned char*>(data)[i], 16, 2);
    put('"');
  }
  end_value();
  return *this;
}

namespace {

// Bytes of the UTF-8 character that begins there, in a text that ends in a NUL; 0 when none does.
size_t character_size(const unsigned char* at) {
  const auto follows = [at](size_t i, unsigned low, unsigned high) { return at[i] >= low && at[i] <= high; };
  const unsigned first = at[0];
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return follows(1, 0x80, 0xBF) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    const bool second = follows(1, first == 0xE0 ? 0xA0 : 0x80, first == 0xED ? 0x9F : 0xBF);
    return second && follows(2, 0x80, 0xBF) ? 3 : 0;
  }
  if (first < 0xF0 || first > 0xF4) return 0;
  const bool second = follows(1, first == 0xF0 ? 0x90 : 0x80, first == 0xF4 ? 0x8F : 0xBF);
  return second && follows(2, 0x80, 0xBF) && follows(3, 0x80, 0xBF) ? 4 : 0;
}

}  // namespace

// A control character, or half a character of the range that stands for bytes that are none.
void JsonLine::put_escaped(unsigned char byte) {
  put_text(byte < 0x80 ? "\\u00" : "\\udc");
  put_number(byte, 16, 2);
}

// One character of a text; returns how many bytes it is there.
size_t JsonLine::put_character(const unsigned char* at) {
  const size_t size = character_size(at);
  if (size == 0 || *at < 0x20) {
    put_escaped(*at);
    return 1;
  }
  if (*at == '"' || *at == '\\') put('\\');
  for (size_t i = 0; i < size; ++i) put(static_cast<char>(at[i]));
  return size;
}

// As many characters as fit, and have room in `most` bytes.
void JsonLine::put_cut(const char* value, size_t most) {
  const size_t end = limit_;
  const size_t room = end - size_ > 1 ? end - size_ - 1 : 0;  // less what ends the text
  limit_ = size_ + (most < room ? most : room);
  const auto* at = reinterpret_cast<const unsigned char*>(value);
  while (*at != '\0') {
    const size_t last = size_;
    at += put_character(at);
    if (whole_) continue;
    size_ = last;
    break;
  }
  whole_ = true;
  limit_ = end;
}

JsonLine& JsonLine::text(const char* key, const char* value, size_t most) {
  if (value == nullptr || *value == '\0') return *this;
  if (begin_value(key)) put('"');
  if (whole_) {
    put_cut(value, most);
    put('"');
  }
  end_value();
  return *this;
}

JsonLine& JsonLine::open(const char* key, char opening, char closing) {
  whole_ = begin_value(key) && depth_ < kDeepest;
  if (whole_) {
    --limit_;  // for its end
    put(opening);
  }
  if (end_value()) {
    closers_[depth_++] = closing;
  } else {
    ++left_out_;
  }
  return *this;
}

JsonLine& JsonLine::close() {
  if (left_out_ > 0) {
    --left_out_;
  } else if (depth_ > 0) {
    data_[size_++] = closers_[--depth_];
  }
  return *this;
}

bool JsonLine::frame(uint32_t module, uint32_t offset, const char* key) {
  if (begin_value(key)) {
    put('[');
    put_number(module, 10);
    put(',');
    put_number(offset, 10);
    put(']');
  }
  return end_value();
}

bool JsonLine::frame_outside(uint32_t address, const char* key) {
  if (begin_value(key)) {
    put_text("[null,\"0x");
    put_number(address, 16);
    put_text("\"]");
  }
  return end_value();
}

const char* JsonLine::finish(size_t* size) {
  left_out_ = 0;
  while (depth_ > 0) close();
  data_[size_++] = '}';
  data_[size_++] = '\n';
  *size = size_;
  return data_;
}

}  // namespace quarl
