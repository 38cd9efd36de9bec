// SPDX-License-Identifier: Apache-2.0
// What is told when a run is over, and what is left of it.
#pragma once

#include "process/log_folder.h"
#include "process/target_run.h"

namespace quarl {

// The run's own files in the folder. Those that are named still at the end are removed.
struct RunFiles {
  RunFiles() = default;
  RunFiles(const RunFiles&) = delete;
  RunFiles& operator=(const RunFiles&) = delete;
  ~RunFiles();

  std::string events;  // "" when it is not the run's own
  std::string config;  // "" when the program reads another
};

// Says which processes run on, what was not checked, and the summary with where the logs are and what to ask next.
// What says nothing goes: with findings_only logs, and the events of a run without any finding.
void tell_end(const TargetRun& run, const RunEvents& events, const LogFolder& folder, RunFiles& files,
              bool findings_only);

}  // namespace quarl
