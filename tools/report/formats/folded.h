// SPDX-License-Identifier: Apache-2.0
// The stacks as flame graph tools read them: one line a trace, outermost first, ";" between, a number behind.
#pragma once

#include <vector>

#include "report/analysis/call_tree.h"
#include "report/analysis/difference.h"
#include "report/formats/output.h"

namespace quarl::report {

// Bytes held by each trace.
void write_folded(Output& output, const std::vector<Site>& sites);
// Two numbers, bytes before and after: the input of differential flame graphs.
void write_folded(Output& output, const std::vector<SiteDifference>& changes);

// A tree: for each node what none of its children holds, under the names from the root to it.
void write_folded(Output& output, const CallNode& root);

}  // namespace quarl::report
