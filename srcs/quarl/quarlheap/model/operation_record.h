// The records of what the hooks did, on their way to the record log: from the block, or from the present call.
#pragma once

#include "logs/format.h"
#include "quarlheap/model/block_header.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

// A block was made, or is live again: what its header says, with this trace.
void record_allocation(SoundBlock block, const CallTrace& trace) REQUIRES(hook_mutex);

// A block was released: with the present thread, time and trace.
void record_release(SoundBlock block, const Flags& flags, Operation op, const CallTrace& trace) REQUIRES(hook_mutex);

// A call that failed.
void record_failure(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace) REQUIRES(hook_mutex);

}  // namespace quarl
