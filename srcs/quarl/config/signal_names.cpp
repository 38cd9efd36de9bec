// SPDX-License-Identifier: Apache-2.0
#include "config/signal_names.h"

#include <cstddef>
#include <cstring>

#include "config/line.h"
#include "platform/decimal.h"

namespace quarl {
namespace {

struct SignalName {
  const char* name;
  int number;
};

// The three that items use first; no row for 16.
constexpr SignalName kNames[] = {
    {"SIGUSR1", 10},   {"SIGUSR2", 12}, {"SIGALRM", 14},  {"SIGHUP", 1},   {"SIGINT", 2},   {"SIGQUIT", 3},
    {"SIGILL", 4},     {"SIGTRAP", 5},  {"SIGABRT", 6},   {"SIGBUS", 7},   {"SIGFPE", 8},   {"SIGKILL", 9},
    {"SIGSEGV", 11},   {"SIGPIPE", 13}, {"SIGTERM", 15},  {"SIGCHLD", 17}, {"SIGCONT", 18}, {"SIGSTOP", 19},
    {"SIGTSTP", 20},   {"SIGTTIN", 21}, {"SIGTTOU", 22},  {"SIGURG", 23},  {"SIGXCPU", 24}, {"SIGXFSZ", 25},
    {"SIGVTALRM", 26}, {"SIGPROF", 27}, {"SIGWINCH", 28}, {"SIGIO", 29},   {"SIGPWR", 30},  {"SIGSYS", 31},
    {"SIGINVALID", 0},
};
constexpr int kFirstNumbered = 32;
constexpr int kLastNumbered = 128;

// "SIG32" to "SIG128", spelled without leading zeros.
int numbered_name(const char* name) {
  if (strncmp(name, "SIG", 3) != 0) return -1;
  const char* digits = name + 3;
  const size_t length = strlen(digits);
  if (length < 2 || length > 3 || digits[0] == '0' || strspn(digits, "0123456789") != length) return -1;
  const int number = static_cast<int>(decimal(digits));
  return number >= kFirstNumbered && number <= kLastNumbered ? number : -1;
}

}  // namespace

int signal_by_name(const char* name) {
  for (const SignalName& row : kNames) {
    if (strcmp(row.name, name) == 0) return row.number;
  }
  return numbered_name(name);
}

int signal_of_value(const char* value, int default_signal) {
  char name[32] = "";
  value += strspn(value, " ");
  const size_t length = strcspn(value, " ");
  if (length < sizeof name) memcpy(name, value, length);
  const int known = signal_by_name(name);
  const int number = known >= 0 ? known : leading_number(name);
  return number == 0 || number == 1 ? default_signal : number;
}

}  // namespace quarl
