// SPDX-License-Identifier: Apache-2.0
// One function a verb. Each writes its answer and returns the exit status; LogError and std::runtime_error tell what
// could not be read or written, CLI::ValidationError what was asked wrongly.
#pragma once

#include "report/verbs/options.h"

namespace quarl::report {

int summarise(const Options& options);
int list_suppressions(const Options& options);
int report_leaks(const Options& options);
int report_difference(const Options& options);
int report_timeline(const Options& options);
int report_threads(const Options& options);
int report_events(const Options& options);
int report_faults(const Options& options);
int report_peak(const Options& options);
int report_moment(const Options& options);
int report_growth(const Options& options);
int report_callers(const Options& options);
int report_hot(const Options& options);
int report_temporary(const Options& options);

}  // namespace quarl::report
