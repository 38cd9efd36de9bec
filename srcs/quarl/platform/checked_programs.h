// SPDX-License-Identifier: Apache-2.0
// Which programs of a process tree are checked: those that QUARL_ONLY names, separated by commas, or all.
#pragma once

namespace quarl {

// The variable names others and not this program: it runs as it would without the library, which keeps its hands off.
// A program goes by the name of its file, of its process, or the one that it was called by. The answer stays the same
// from the first allocation on.
bool left_alone();

}  // namespace quarl
