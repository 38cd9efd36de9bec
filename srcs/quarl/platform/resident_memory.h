// SPDX-License-Identifier: Apache-2.0
// How much of the process lies in memory.
#pragma once

#include <cstdint>

namespace quarl {

// Bytes; 0 when the kernel does not say. Safe in a signal handler.
uint64_t resident_bytes();

}  // namespace quarl
