// SPDX-License-Identifier: Apache-2.0
// The words for the codes of a record.
#pragma once

#include <cstdint>

namespace quarl::report {

// "malloc", "realloc release", "mmap file" and so on, indexed by Operation.
const char* operation_name(int operation);
// "allocated", "released", "failed", "head overrun", "tail overrun".
const char* result_name(int result);

}  // namespace quarl::report
