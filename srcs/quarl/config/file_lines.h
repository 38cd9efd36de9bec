// SPDX-License-Identifier: Apache-2.0
// Reads a configuration file line by line, 128 bytes at a time. Pure but for the reader that it is given; the tool on
// the desk reads files with it too.
//
// A line counts when its end (line feed or carriage return) lies within the 128 bytes read from its start. Otherwise
// the reading moves on by one byte: of a longer line the last 127 characters count, and a last line without an end
// never does.
#pragma once

#include <cstdint>

#include "config/line.h"

namespace quarl {

inline constexpr int kReadSize = kMaxLine + 1;

// Calls take_line(text, offset) for every line that is neither empty nor a comment. read_at(offset, buffer) reads up to
// kReadSize bytes and returns their number, 0 or less at the end.
template <typename ReadAt, typename TakeLine>
void for_each_line(ReadAt read_at, TakeLine take_line) {
  char buffer[kReadSize + 1];
  int64_t offset = 0;
  for (;;) {
    const long got = read_at(offset, buffer);
    if (got <= 0) return;
    long length = 0;
    while (length < got && buffer[length] != '\n' && buffer[length] != '\r') ++length;
    if (length == got) length = 0;
    buffer[length] = '\0';
    const int64_t start = offset;
    offset += length + 1;
    const char* first = buffer;
    while (*first == ' ' || *first == '\t') ++first;
    if (length > 0 && *first != '#') take_line(static_cast<const char*>(buffer), start);
  }
}

}  // namespace quarl
