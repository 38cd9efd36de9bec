// SPDX-License-Identifier: Apache-2.0
// Messages go to standard error, one line each, with the tool's name in front; answers go to standard output.
#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <utility>

namespace quarl {

template <typename... Args>
void say(fmt::format_string<Args...> text, Args&&... args) {
  // One write, so that it does not mix with what the program under test prints on the same terminal.
  std::string line = "quarl: " + fmt::format(text, std::forward<Args>(args)...) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace quarl
