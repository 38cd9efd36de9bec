// SPDX-License-Identifier: Apache-2.0
// What the program learns and sets of signal actions, where a handler of the checker's stands in for the default one.
// Programs keep what they find to put it back, and take a handler that is there for a reason to install none of their
// own: they find what they would find without the checker.
#include <errno.h>
#include <signal.h>

#include "platform/glibc/glibc.h"
#include "platform/glibc/loaded_symbols.h"

namespace quarl {
namespace {

using Handler = void (*)(int);
using SetAction = int (*)(int, const struct sigaction*, struct sigaction*);
using SetHandler = Handler (*)(int, Handler);

constinit StandIn stand_in{};

bool stands_in(const void* handler) {
  return stand_in.handler != nullptr && handler == reinterpret_cast<const void*>(stand_in.handler);
}

void put_where_wanted(int number, Handler wanted) {
  if (wanted == SIG_DFL && stand_in.put != nullptr) stand_in.put(number);
}

// The functions that the program would have called without us. They are looked for at the checker's start: a child of a
// program with threads could not take the loader's lock any more.
enum SettingFunction : int { kSignal, kBsdSignal, kSsignal, kSysvSignal, kOldSysvSignal, kSigset, kSettingFunctions };
constexpr const char* kNames[] = {"signal", "bsd_signal", "ssignal", "sysv_signal", "__sysv_signal", "sigset"};
static_assert(sizeof kNames / sizeof *kNames == kSettingFunctions);

struct Next {
  SetAction own;  // the C library's, whoever stands between
  SetHandler setters[kSettingFunctions];
  SetAction action;
};
constinit Next found{};

const Next& next() {
  if (__atomic_load_n(&found.action, __ATOMIC_ACQUIRE) == nullptr) {
    found.own = reinterpret_cast<SetAction>(glibc::libc_symbol("sigaction"));
    for (int i = 0; i < kSettingFunctions; ++i) {
      found.setters[i] = reinterpret_cast<SetHandler>(glibc::next_function(kNames[i]));
    }
    __atomic_store_n(&found.action, reinterpret_cast<SetAction>(glibc::next_function("sigaction")), __ATOMIC_RELEASE);
  }
  return found;
}

Handler set_handler(SettingFunction function, int number, Handler wanted) {
  const SetHandler set = next().setters[function];
  if (set == nullptr) return errno = ENOSYS, SIG_ERR;
  const Handler before = set(number, wanted);
  if (before != SIG_ERR) put_where_wanted(number, wanted);
  return stands_in(reinterpret_cast<const void*>(before)) ? SIG_DFL : before;
}

}  // namespace

void set_stand_in(const StandIn& wanted) {
  (void)next();
  stand_in = wanted;
}

int set_signal_action(int number, const struct sigaction* wanted, struct sigaction* before) {
  return next().own(number, wanted, before);
}

}  // namespace quarl

extern "C" {

QUARL_EXPORT int sigaction(int number, const struct sigaction* wanted, struct sigaction* before) noexcept {
  using namespace quarl;
  const Handler handler = wanted != nullptr ? wanted->sa_handler : SIG_ERR;
  const int result = next().action(number, wanted, before);
  if (result != 0) return result;
  if (before != nullptr && stands_in(reinterpret_cast<const void*>(before->sa_handler))) *before = {};
  put_where_wanted(number, handler);
  return result;
}

#define QUARL_SETS_HANDLER(name, function)                                       \
  QUARL_EXPORT quarl::Handler name(int number, quarl::Handler wanted) noexcept { \
    return quarl::set_handler(quarl::function, number, wanted);                  \
  }
QUARL_SETS_HANDLER(signal, kSignal)
QUARL_SETS_HANDLER(bsd_signal, kBsdSignal)
QUARL_SETS_HANDLER(ssignal, kSsignal)
QUARL_SETS_HANDLER(sysv_signal, kSysvSignal)
QUARL_SETS_HANDLER(__sysv_signal, kOldSysvSignal)
QUARL_SETS_HANDLER(sigset, kSigset)
#undef QUARL_SETS_HANDLER

}  // extern "C"
