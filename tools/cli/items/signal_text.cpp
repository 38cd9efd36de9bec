// SPDX-License-Identifier: Apache-2.0
#include "items/signal_text.h"

#include <fmt/format.h>
#include <string.h>

#include "config/signal_names.h"

namespace quarl {

int signal_number(const std::string& value) {
  return signal_of_value(value.c_str(), 0);
}

std::string signal_name(int number) {
  const char* name = sigabbrev_np(number);
  return name ? fmt::format("SIG{}", name) : fmt::format("SIG{}", number);
}

}  // namespace quarl
