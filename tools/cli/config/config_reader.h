// The lines that the library takes out of a configuration file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quarl {

// The library reads 128 bytes from where a line starts and takes the line when its end (a line feed or a carriage
// return) is among them. When it is not, it tries again one byte further on. So a line of up to 127 characters is
// taken whole, of a longer one the last 127 characters are taken as if they were the line, and a last line without
// an end is never taken.
struct ConfigLine {
  enum class Fate { kItem, kComment, kNoEnd };

  int number;  // in the file, from 1
  Fate fate;
  std::string text;  // up to its first NUL, as the item parser sees it
  int length;        // characters of the whole line in the file
  bool cut() const;  // only the last 127 characters were taken
};

// Empty lines are left out. A line end of carriage return and line feed counts as one line.
std::vector<ConfigLine> read_config(std::string_view bytes);

// The bytes of the file, or a Refusal that says why it cannot be read.
std::string slurp(const std::string& path);

}  // namespace quarl
