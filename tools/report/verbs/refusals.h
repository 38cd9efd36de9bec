// SPDX-License-Identifier: Apache-2.0
// Filters that a verb cannot put to what it tells, or that leave nothing.
#pragma once

#include "report/analysis/selection.h"

namespace quarl::report {

// Throws CLI::ValidationError when a least value is above the greatest one: a mistake that would look like no leaks.
void refuse_empty_ranges(const Selection& selection);
// Throw CLI::ValidationError when such a filter is given; `why` is what is said of it.
void refuse_age(const Selection& selection, const char* why);
void refuse_all_but_thread(const Selection& selection, const char* why);

}  // namespace quarl::report
