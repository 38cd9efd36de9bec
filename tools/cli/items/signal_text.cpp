#include "items/signal_text.h"

#include <fmt/format.h>
#include <string.h>

#include "config/signal_names.h"

namespace quarl {

int signal_number(std::string_view value) {
  return signal_of_value(std::string(value).c_str(), 0);
}

int signal_or_default(std::string_view value, int default_signal) {
  return signal_of_value(std::string(value).c_str(), default_signal);
}

std::string signal_name(int number) {
  const char* name = sigabbrev_np(number);
  return name ? fmt::format("SIG{}", name) : fmt::format("SIG{}", number);
}

}  // namespace quarl
