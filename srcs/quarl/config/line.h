// SPDX-License-Identifier: Apache-2.0
// One line of configuration: key, "=", value. Pure: no state, no output; the tool on the desk reads lines with it too.
#pragma once

namespace quarl {

// Limits of one configuration line, in characters without the NUL.
inline constexpr int kMaxKey = 31;
inline constexpr int kMaxValue = 15;
inline constexpr int kMaxLine = 127;

enum class LineError {
  kNone,
  kKeyTooLong,  // over kMaxKey characters
  kNoEquals,
  kNoValue,      // nothing behind the "="
  kValueLength,  // no character, or over kMaxValue
};

struct Line {
  char key[kMaxKey + 1] = "";
  char value[kMaxValue + 1] = "";
  LineError error = LineError::kNone;
  const char* error_text = "";  // what a message names: the rest of the text from the key on, or the key
};

// Blanks and tabs may stand before the key and around the "="; whatever follows the key before the "=", and the value
// after it, is skipped. error_text points into `text` or is null, which means the key.
Line parse_line(const char* text);

// The number that a value begins with: sign and decimal digits, 0 without any. What an int cannot hold is the nearest
// one that it can, whatever the size of a long.
int leading_number(const char* value);

}  // namespace quarl
