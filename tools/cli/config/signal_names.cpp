#include "config/signal_names.h"

#include <fmt/format.h>

#include "config/item_values.h"

namespace quarl {
namespace {

constexpr std::string_view kNames[] = {
    "",        "SIGHUP",  "SIGINT",    "SIGQUIT", "SIGILL",   "SIGTRAP", "SIGABRT", "SIGBUS",
    "SIGFPE",  "SIGKILL", "SIGUSR1",   "SIGSEGV", "SIGUSR2",  "SIGPIPE", "SIGALRM", "SIGTERM",
    "",        "SIGCHLD", "SIGCONT",   "SIGSTOP", "SIGTSTP",  "SIGTTIN", "SIGTTOU", "SIGURG",
    "SIGXCPU", "SIGXFSZ", "SIGVTALRM", "SIGPROF", "SIGWINCH", "SIGIO",   "SIGPWR",  "SIGSYS",
};
constexpr int kNameCount = sizeof kNames / sizeof kNames[0];
constexpr int kFirstNumbered = 32, kLastNumbered = 128;  // SIG32 to SIG128

}  // namespace

int signal_number(std::string_view value) {
  for (int number = 1; number < kNameCount; ++number) {
    if (value == kNames[number]) return number;
  }
  for (int number = kFirstNumbered; number <= kLastNumbered; ++number) {
    if (value == fmt::format("SIG{}", number)) return number;
  }
  return static_cast<int>(leading_number(value));
}

int signal_or_default(std::string_view value, int default_signal) {
  int number = signal_number(value);
  return number == 0 || number == 1 ? default_signal : number;
}

std::string signal_name(int number) {
  if (number > 0 && number < kNameCount && !kNames[number].empty()) return std::string(kNames[number]);
  return fmt::format("SIG{}", number);
}

}  // namespace quarl
