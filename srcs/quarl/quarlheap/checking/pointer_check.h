// What the release and resize hooks do first with a pointer: is it a block, was it, and is it sound?
#pragma once

#include "quarlheap/checking/block_check.h"

namespace quarl {

// Any fault of p is reported and stops the thread; returns only when the block is sound. The lock is released before
// the thread parks.
void qr_check_before_release(Address p, bool lock_held) REQUIRES(hook_mutex);

// True when p is on the used list. A broken header met on the way is reported and stops the thread.
bool qr_find_used_block(Address p, bool lock_held) REQUIRES(hook_mutex);

// The whole classification of a non-null pointer. Returns the header offset of a sound block, and 0 for a foreign
// pointer (memory without a header of ours); every fault is reported and stops the thread.
uint32_t classify_pointer(Address p) REQUIRES(hook_mutex);

}  // namespace quarl
