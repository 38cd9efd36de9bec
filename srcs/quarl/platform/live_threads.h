// SPDX-License-Identifier: Apache-2.0
// How many threads of the process still run.
#pragma once

namespace quarl {

// The calling one included; a main thread that has ended while others go on is not. 0 when the kernel does not say.
// Threads that an emulator runs for itself count too. Safe in a signal handler.
int live_threads();

}  // namespace quarl
