// The debug information of one code address: its source line and the calls that were inlined there.
#pragma once

#include <elfutils/libdwfl.h>

#include "report/symbols/frame.h"

namespace quarl::report {

// At least one frame, innermost first, each a copy of `frame` with what the debug information adds; all but the last
// are inlined into the one behind. Without debug information `frame` itself.
Frames inline_chain(Dwfl_Module* module, uint64_t address, const Frame& frame);

}  // namespace quarl::report
