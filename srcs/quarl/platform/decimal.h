// SPDX-License-Identifier: Apache-2.0
// Decimal numbers of text, by the C library's function under the name that every version of it has: new headers give it
// another, also behind atoi.
#pragma once

extern "C" long plain_strtol(const char* text, char** end, int base) __asm__("strtol");

namespace quarl {

// As strtol: blanks in front are skipped, 0 where there is no digit, the nearest long where there are too many.
inline long decimal(const char* text) {
  return plain_strtol(text, nullptr, 10);
}

}  // namespace quarl
