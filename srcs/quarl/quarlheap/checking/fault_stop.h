// SPDX-License-Identifier: Apache-2.0
// What happens to a thread that met a fault.
#pragma once

#include "quarlheap/checking/parked_threads.h"

namespace quarl {

inline constexpr int kReleaseSignal = 60;

// Holds signal 60 back for this thread. Called before the fault is told, since whoever reads the report may send the
// signal at once, and its default action would end the whole process.
void expect_release();

// Parks the calling thread until it is sent signal 60, then ends it; the rest of the process runs on. `lock_held`:
// the caller holds hook_mutex, which is released first.
[[noreturn]] void qr_fault_stop(int task_id, bool lock_held, StopReason reason = StopReason::kFault);

}  // namespace quarl
