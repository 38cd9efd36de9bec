// SPDX-License-Identifier: Apache-2.0
// What a file of events (docs/events.md) tells of a process's resident memory, at each snapshot that it wrote.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "report/reading/log.h"

namespace quarl::report {

struct ResidentEvent {
  uint64_t time = 0;                 // when the snapshot had been written, seconds since the epoch
  std::optional<uint64_t> resident;  // bytes, when the kernel told
};

// In the order in which they were told: of the snapshots in `log` itself; of a record log, those of the logs beside it
// that the same process wrote.
std::vector<ResidentEvent> read_resident_events(const std::string& path, const Log& log, uint32_t pid);

// The event of each snapshot that has one: the first behind its time that no snapshot before it has, and no later than
// the next snapshot began.
std::vector<std::optional<uint64_t>> resident_at(const std::vector<Snapshot>& snapshots,
                                                 const std::vector<ResidentEvent>& events);

}  // namespace quarl::report
