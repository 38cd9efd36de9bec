// SPDX-License-Identifier: Apache-2.0
// Alternate signal stacks for threads that have none: where a thread's own stack has overflowed, no handler runs
// without.
#pragma once

namespace quarl {

// From now on each thread gets one at its first call of the checker; the calling one at once. A program's own stays,
// and so does none where more threads are alive than there are stacks.
void give_signal_stacks();

}  // namespace quarl
