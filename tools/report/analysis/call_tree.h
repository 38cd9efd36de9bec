// SPDX-License-Identifier: Apache-2.0
// Sites as a tree of calls: from the outermost functions inwards, or from one function to its callers.
#pragma once

#include <string>
#include <vector>

#include "report/analysis/site.h"

namespace quarl::report {

struct CallNode {
  std::string name;
  Usage usage;                     // of this node and all below it
  std::vector<CallNode> children;  // most bytes first
};

// The root has no name and holds everything. Sites must be grouped by trace.
CallNode build_call_tree(const std::vector<Site>& sites);

// The callers of the functions that match, see pattern_matches(): below the root these functions, below them who called
// them, and so on outwards. The root holds what was asked for through any of them; of a trace in which several match,
// the innermost counts. Without symbols a frame goes by its name, "module+0x12".
CallNode build_caller_tree(const std::vector<Site>& sites, const std::string& pattern);

}  // namespace quarl::report
