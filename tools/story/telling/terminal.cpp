// SPDX-License-Identifier: Apache-2.0
#include "story/telling/terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace quarl::story {

bool wants_colours(int descriptor) {
  const char *refused = std::getenv("NO_COLOR"), *terminal = std::getenv("TERM");
  if (refused != nullptr && *refused != '\0') return false;
  return terminal != nullptr && std::string_view(terminal) != "dumb" && isatty(descriptor) == 1;
}

}  // namespace quarl::story
