// SPDX-License-Identifier: Apache-2.0
// The lines that the library takes out of a configuration file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quarl {

// Read by the library's own loop: a line of up to 127 characters is taken whole, of a longer one the last 127
// characters are taken as if they were the line, and a last line without an end is never taken.
struct ConfigLine {
  int number;        // in the file, from 1; carriage return and line feed together are one line end
  std::string text;  // as the item parser sees it
  int length;        // characters of the whole line in the file
  bool ended;        // false for a last line without an end
  bool cut() const;  // only the last 127 characters were taken
};

// Without empty lines and comments; with a last line that has no end.
std::vector<ConfigLine> read_config(std::string_view bytes);

// The bytes of the file, or a Refusal that says why it cannot be read.
std::string slurp(const std::string& path);

}  // namespace quarl
