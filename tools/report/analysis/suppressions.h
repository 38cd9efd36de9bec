// SPDX-License-Identifier: Apache-2.0
// What is not to be told as unfreed: known leaks, by lines "leak:PATTERN" in the manner of LeakSanitizer, and what the
// C and C++ libraries keep by design.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "report/symbols/frame.h"

namespace quarl::report {

enum class Hiding : uint8_t { kNone, kByUser, kByDefault };

class Suppressions {
 public:
  // Adds the patterns of a file. Throws std::runtime_error with the line number at a line that is none: empty lines and
  // lines that begin with '#' are skipped.
  void load(const std::string& path);
  // The rules of default_rules() count as well.
  void add_defaults() { defaults_ = true; }

  // What keeps a block with this trace from being told. By the user when a pattern matches the function, source file or
  // module of any frame, whatever the default rules say.
  Hiding hiding_of(const Frames& frames) const;
  bool empty() const { return patterns_.empty() && !defaults_; }

 private:
  bool user_hides(const Frames& frames) const;

  std::vector<std::string> patterns_;
  bool defaults_ = false;
};

// `pattern` matches anywhere in `text`: '*' stands for any characters, '^' at its front and '$' at its end for the
// ends of the text.
bool pattern_matches(std::string_view pattern, std::string_view text);

}  // namespace quarl::report
