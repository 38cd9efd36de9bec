// SPDX-License-Identifier: Apache-2.0
// Signal values of items: a name such as SIGUSR1 or SIG40, or a number.
#pragma once

namespace quarl {

// The number of a signal name, exactly as spelled; -1 for an unknown one. SIG32 to SIG128 are names too, and SIGINVALID
// is 0.
int signal_by_name(const char* name);

// What a value selects: a name or a number; 0, 1 and what is neither select `default_signal`.
int signal_of_value(const char* value, int default_signal);

}  // namespace quarl
