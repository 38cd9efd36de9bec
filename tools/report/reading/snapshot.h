// SPDX-License-Identifier: Apache-2.0
// Where the parts of one snapshot lie in its log. A record log and a snapshot log are one snapshot each.
#pragma once

#include "quarl/logs/format.h"

namespace quarl::report {

struct Snapshot {
  LogHeader header;        // in this machine's byte order
  uint64_t start = 0;      // offset of the header, bytes from the start of the file
  uint64_t limit = 0;      // first byte that belongs to the next snapshot, or the end of the file
  uint64_t records = 0;    // whole records that are really there
  uint64_t uncounted = 0;  // whole records behind those, of a snapshot log: faults told after its last dump
};

}  // namespace quarl::report
