// SPDX-License-Identifier: Apache-2.0
// The calls that led to where a signal came: by the rules of tables where there are any, else by the frame pointer.
// Reads what is there of the stack, even of one that has overflowed; safe in a signal handler.
#pragma once

#include "platform/registers.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

// At most kMaxTrace return addresses, that into the caller of the interrupted function first. Where a jump led to no
// code, the first is that of the call that jumped.
void capture_interrupted(Registers at, CallTrace* trace);

}  // namespace quarl
