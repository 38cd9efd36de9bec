// Filters that a verb cannot put to what it tells.
#pragma once

#include "report/analysis/selection.h"

namespace quarl::report {

// Throw CLI::ValidationError when such a filter is given; `why` is what is said of it.
void refuse_age(const Selection& selection, const char* why);
void refuse_all_but_thread(const Selection& selection, const char* why);

}  // namespace quarl::report
