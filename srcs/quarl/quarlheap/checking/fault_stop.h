// What happens to a thread that met a fault.
#pragma once

namespace quarl {

inline constexpr int kReleaseSignal = 60;

// Parks the calling thread until it is sent signal 60, then ends it; the rest of the process runs on. `lock_held`:
// the caller holds hook_mutex, which is released first.
[[noreturn]] void qr_fault_stop(int task_id, bool lock_held);

}  // namespace quarl
