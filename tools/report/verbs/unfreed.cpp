// SPDX-License-Identifier: Apache-2.0
#include "report/verbs/unfreed.h"

#include <stdexcept>

#include "report/verbs/answer.h"

namespace quarl::report {

std::optional<Unfreed> unfreed_in(const std::string& log) {
  try {
    Options options;
    Answer answer(options);
    Subject subject = answer.open(log);
    if (subject.snapshot().header.time == 0 || !subject.losses().empty()) return std::nullopt;
    const SiteTable& sites = subject.sites();
    return Unfreed{sites.total(), sites.left_out()};
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

}  // namespace quarl::report
