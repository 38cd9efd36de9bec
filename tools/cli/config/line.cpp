#include "config/line.h"

#include <cstring>

namespace quarl {

Line parse_line(const char* text) {
  Line line{};
  text += std::strspn(text, " \t");
  size_t key = std::strcspn(text, " \t=");
  line.error_text = text;
  line.error = LineError::kKeyTooLong;
  if (key > sizeof line.key - 1) return line;
  std::memcpy(line.key, text, key);
  line.error_text = nullptr;
  line.error = LineError::kNoEquals;
  const char* equals = std::strchr(text + key, '=');
  if (!equals) return line;
  const char* value = equals + 1 + std::strspn(equals + 1, " \t");
  line.error = LineError::kNoValue;
  if (!*value) return line;
  size_t length = std::strcspn(value, " \t=#");
  line.error = LineError::kValueLength;
  if (length == 0 || length > sizeof line.value - 1) return line;
  std::memcpy(line.value, value, length);
  line.error = LineError::kNone;
  return line;
}

}  // namespace quarl
