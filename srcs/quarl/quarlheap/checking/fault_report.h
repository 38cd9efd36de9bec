// SPDX-License-Identifier: Apache-2.0
// What is said about a fault.
#pragma once

#include "quarlheap/checking/block_check.h"

namespace quarl {

// Prints the report on standard output, in one write; for head and tail overruns also writes a record to the record
// log or the snapshot log, whichever is in use and open.
void qr_report_fault(DoubtfulBlock block, int code) REQUIRES(hook_mutex);

}  // namespace quarl
