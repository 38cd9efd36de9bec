// SPDX-License-Identifier: Apache-2.0
#include "report/verbs/refusals.h"

#include <CLI/CLI.hpp>

namespace quarl::report {

void refuse_empty_ranges(const Selection& selection) {
  if (selection.min_size.value_or(0) > selection.max_size.value_or(UINT32_MAX))
    throw CLI::ValidationError("--min-size", "is more than --max-size: nothing is left to choose");
  if (selection.min_age.value_or(0) > selection.max_age.value_or(UINT32_MAX))
    throw CLI::ValidationError("--min-age", "is more than --max-age: nothing is left to choose");
}

void refuse_age(const Selection& selection, const char* why) {
  if (selection.min_age) throw CLI::ValidationError("--min-age", why);
  if (selection.max_age) throw CLI::ValidationError("--max-age", why);
}

void refuse_all_but_thread(const Selection& selection, const char* why) {
  if (selection.min_size) throw CLI::ValidationError("--min-size", why);
  if (selection.max_size) throw CLI::ValidationError("--max-size", why);
  if (!selection.module.empty()) throw CLI::ValidationError("--module", why);
  refuse_age(selection, why);
}

}  // namespace quarl::report
