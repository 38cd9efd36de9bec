// SPDX-License-Identifier: Apache-2.0
// A configuration file of any bytes: every line that is taken from it, and what the line says.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "config/file_lines.h"
#include "config/line.h"

namespace {

void require(bool holds) {
  if (!holds) abort();
}

void check_parsed(const char* text) {
  const quarl::Line line = quarl::parse_line(text);
  require(memchr(line.key, 0, sizeof line.key) != nullptr && memchr(line.value, 0, sizeof line.value) != nullptr);
  require(strcspn(line.key, " \t=") == strlen(line.key));
  require(strcspn(line.value, " \t=#") == strlen(line.value));
  if (line.error == quarl::LineError::kNone) {
    require(line.value[0] != '\0' && strchr(text, '=') != nullptr);
  } else if (line.error_text != nullptr) {
    require(line.error_text >= text && line.error_text <= text + strlen(text));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto read_at = [&](int64_t offset, char* buffer) -> long {
    if (static_cast<uint64_t>(offset) >= size) return 0;
    const size_t left = size - static_cast<size_t>(offset);
    const size_t got = left < quarl::kReadSize ? left : quarl::kReadSize;
    memcpy(buffer, data + offset, got);
    return static_cast<long>(got);
  };
  int64_t last = -1;
  quarl::for_each_line(read_at, [&](const char* line, int64_t offset) {
    const size_t length = strlen(line);
    require(offset > last && length <= quarl::kMaxLine && strpbrk(line, "\r\n") == nullptr);
    require(memcmp(line, data + offset, length) == 0);
    last = offset;
    const std::unique_ptr<char[]> exact(strcpy(new char[length + 1], line));  // so that a step too far is seen
    check_parsed(exact.get());
  });
  return 0;
}
