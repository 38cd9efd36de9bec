// SPDX-License-Identifier: Apache-2.0
// Sites that rise over many snapshots, for every format.
#pragma once

#include "report/analysis/growth.h"
#include "report/formats/table.h"

namespace quarl::report {

Table growth_rows(const std::vector<GrownSite>& sites);
// The members of the answer.
Json growth_json(const Growth& growth, const std::vector<GrownSite>& sites, size_t top);
void write_growth_text(Output& output, const Growth& growth, const std::vector<GrownSite>& sites, size_t top);

}  // namespace quarl::report
