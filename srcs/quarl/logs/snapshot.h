// The snapshot of unfreed memory in the snapshot log: one record for every live block and mapping, and the histogram on
// standard output.
#pragma once

#include "quarlheap/lock/hook_lock.h"

namespace quarl {

// The snapshot log must be open.
void write_snapshot() REQUIRES(hook_mutex);

}  // namespace quarl
