// SPDX-License-Identifier: Apache-2.0
// What ends a verb early: the text goes to standard error, the exit status is kRefused.
#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>

namespace quarl {

enum ExitStatus { kDone = 0, kRefused = 1, kUsage = 2 };

struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

template <typename... Args>
[[noreturn]] void refuse(fmt::format_string<Args...> text, Args&&... args) {
  throw Refusal(fmt::format(text, std::forward<Args>(args)...));
}

}  // namespace quarl
