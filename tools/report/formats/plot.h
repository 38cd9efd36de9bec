// SPDX-License-Identifier: Apache-2.0
// A timeline drawn with characters.
#pragma once

#include "report/analysis/timeline.h"
#include "report/formats/output.h"

namespace quarl::report {

// `height` lines for the bytes held and as many for the blocks, where they are known.
void write_plot(Output& output, const Timeline& timeline, size_t height);

}  // namespace quarl::report
