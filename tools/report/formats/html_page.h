// The page: one file that needs nothing else.
#pragma once

#include <string>

#include "report/analysis/subject.h"

namespace quarl::report {

// The page of `subject`, of which the timeline and the threads are wanted. Its flame graph shows differences to
// `before` when that is given, and otherwise between the snapshots of the log.
std::string html_page(Subject& subject, Subject* before, const Desk& desk);

}  // namespace quarl::report
