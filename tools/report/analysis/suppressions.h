// Leaks that are known and not to be told: lines "leak:PATTERN" in the manner of LeakSanitizer.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "report/symbols/frame.h"

namespace quarl::report {

class Suppressions {
 public:
  // Adds the patterns of a file. Throws std::runtime_error with the line number at a line that is none: empty lines and
  // lines that begin with '#' are skipped.
  void load(const std::string& path);
  void add(std::string pattern) { patterns_.push_back(std::move(pattern)); }

  // True when a pattern matches the function, source file or module of any frame.
  bool hides(const Frames& frames) const;
  bool empty() const { return patterns_.empty(); }

 private:
  std::vector<std::string> patterns_;
};

// `pattern` matches anywhere in `text`: '*' stands for any characters, '^' at its front and '$' at its end for the
// ends of the text.
bool pattern_matches(std::string_view pattern, std::string_view text);

}  // namespace quarl::report
