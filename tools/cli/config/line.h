// One line of configuration text: KEY = VALUE.
#pragma once

namespace quarl {

enum class LineError { kNone, kKeyTooLong, kNoEquals, kNoValue, kValueLength };

struct Line {
  char key[32];
  char value[16];
  LineError error;
  const char* error_text;  // what the message names
};

Line parse_line(const char* text);

}  // namespace quarl
