// Signals in texts, and the ones that the checker uses.
#pragma once

#include <string>
#include <string_view>

namespace quarl {

inline constexpr int kDumpSignal = 10;     // SIGUSR1, the default of QUARL_SIG
inline constexpr int kTimerSignal = 14;    // SIGALRM, the default of QUARL_TIMER_SIG
inline constexpr int kReleaseSignal = 60;  // ends a parked thread
inline constexpr int kLastSignal = 64;     // the kernel has no higher one

// The number behind a name or the digits; 0 for an unknown name.
int signal_number(std::string_view value);

// As the library reads the value of a signal item: 0, 1 and unknown names select the default.
int signal_or_default(std::string_view value, int default_signal);

// "SIGUSR1" for 10, "SIG40" for a number without a name.
std::string signal_name(int number);

}  // namespace quarl
