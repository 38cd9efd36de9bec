// SPDX-License-Identifier: Apache-2.0
// Signals in texts, and the one that the checker waits for.
#pragma once

#include <string>

namespace quarl {

inline constexpr int kReleaseSignal = 60;  // ends a parked thread

// The number behind a name or the digits; 0 for 1 and for an unknown name.
int signal_number(const std::string& value);

// "SIGUSR1" for 10, "SIG40" for a number without a name.
std::string signal_name(int number);

}  // namespace quarl
