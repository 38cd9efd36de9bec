// SPDX-License-Identifier: Apache-2.0
// The call trace of code without frame pointers: by the rules of tables, and by the frame pointer where there is none.
// Keeps what call_trace.h promises, and needs capture_trace's frame below it.
#pragma once

#include <cstdint>

namespace quarl {

// At most max ([1, kMaxTrace]) return addresses into buf[0 .. count), that into the caller of the function with this
// frame first; returns count. All frames from here to that one are the library's own.
int capture_by_rules(uintptr_t hook_frame, uint32_t* buf, int max);

}  // namespace quarl
