// SPDX-License-Identifier: Apache-2.0
// Libraries that a run loaded on its way, by dlopen, and that the loader could not name before.
#pragma once

#include <string>
#include <vector>

#include "process/run_events.h"

namespace quarl {

// Makes the unwind rules of those that the events or the logs name, for the next run, and says so when there were any.
void prepare_late_libraries(const RunEvents& events, const std::vector<std::string>& logs, const std::string& sysroot);

}  // namespace quarl
