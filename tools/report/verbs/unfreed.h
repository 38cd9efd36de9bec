// SPDX-License-Identifier: Apache-2.0
// What `quarl report leaks LOG` says was never given back, for others to say the same.
#pragma once

#include <optional>
#include <string>

#include "report/analysis/site_table.h"

namespace quarl::report {

struct Unfreed {
  Usage usage;
  LeftOut left_out;
};

// Nothing when the log cannot be read, was never written or is not whole.
std::optional<Unfreed> unfreed_in(const std::string& log);

}  // namespace quarl::report
