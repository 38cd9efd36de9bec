// SPDX-License-Identifier: Apache-2.0
// Records of overruns: written at once, since the process may not live much longer.
#pragma once

#include "logs/format.h"
#include "state/hook_lock.h"

namespace quarl {

// Appends the record to the record log when that is in use and open, else to the snapshot log when that is; else drops
// it. The position of an open log is always the end of its records.
void log_fault(const OpRecord& record) REQUIRES(hook_mutex);

}  // namespace quarl
