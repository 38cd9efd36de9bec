// SPDX-License-Identifier: Apache-2.0
// The `frames` verb of the command line: unwind rules prepared on the desk.
#pragma once

#include <CLI/CLI.hpp>

namespace quarl::frames {

// Adds `frames` to `app`. Running it sets `exit_status`: 0 done, 1 a file that was named got no table, or none was
// made. Wrong usage is thrown as CLI::ParseError.
void add_verb(CLI::App& app, int& exit_status);

}  // namespace quarl::frames
