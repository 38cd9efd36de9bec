// SPDX-License-Identifier: Apache-2.0
// Turns the structs of a log into this machine's byte order, in place.
#pragma once

#include "quarl/logs/format.h"

namespace quarl::report {

// True when numbers written in `byte_order` (kBigEndian or kLittleEndian) must be swapped here.
bool needs_swap(uint8_t byte_order);

void swap_bytes(LogHeader& header);
void swap_bytes(OpRecord& record);
void swap_bytes(ProfInfo& statistics);
void swap_bytes(ThreadProf& thread);

}  // namespace quarl::report
