// What is held, as a tree of callers: the outermost functions are the roots.
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

}  // namespace quarl::report
