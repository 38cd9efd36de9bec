// SPDX-License-Identifier: Apache-2.0
#include "config/line.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/decimal.h"

namespace quarl {
namespace {

const char* skip_blanks(const char* text) {
  return text + strspn(text, " \t");
}

// Characters up to the first of `stops` or the end.
size_t run_length(const char* text, const char* stops) {
  return strcspn(text, stops);
}

Line failed(Line line, LineError error, const char* text) {
  line.error = error;
  line.error_text = text;
  return line;
}

}  // namespace

Line parse_line(const char* text) {
  Line line;
  line.error_text = nullptr;
  const char* key = skip_blanks(text);
  const size_t key_length = run_length(key, " \t=");
  if (key_length > kMaxKey) return failed(line, LineError::kKeyTooLong, key);
  memcpy(line.key, key, key_length);

  const char* equals = strchr(key + key_length, '=');
  if (equals == nullptr) return failed(line, LineError::kNoEquals, nullptr);
  const char* value = skip_blanks(equals + 1);
  if (*value == '\0') return failed(line, LineError::kNoValue, nullptr);
  const size_t value_length = run_length(value, " \t=#");
  if (value_length == 0 || value_length > kMaxValue) return failed(line, LineError::kValueLength, nullptr);
  memcpy(line.value, value, value_length);
  return line;
}

int leading_number(const char* value) {
  return static_cast<int>(std::clamp<long>(decimal(value), INT_MIN, INT_MAX));
}

}  // namespace quarl
