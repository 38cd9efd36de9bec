// SPDX-License-Identifier: Apache-2.0
// Return addresses of some of a snapshot's records, spread over it: by them is judged whether a file is the one that
// ran.
#pragma once

#include <cstdint>
#include <vector>

#include "report/reading/log.h"

namespace quarl::report {

// Each once, ascending; of at most 256 records.
std::vector<uint32_t> sample_addresses(const Log& log, const Snapshot& snapshot);

}  // namespace quarl::report
