// The page: one file that needs nothing else.
#pragma once

#include <string>

#include "report/analysis/site_table.h"
#include "report/analysis/subject.h"

namespace quarl::report {

// The page of `subject`. Its flame graph shows differences to `before` when that is given, and otherwise between the
// snapshots of the log.
std::string html_page(Subject& subject, Subject* before, Desk& desk, const Suppressions& suppressions);

}  // namespace quarl::report
