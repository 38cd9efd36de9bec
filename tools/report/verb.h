// SPDX-License-Identifier: Apache-2.0
// The `report` verb of the command line: answers from the logs.
#pragma once

#include <CLI/CLI.hpp>

namespace quarl::report {

// Adds `report` and its own verbs to `app`. Running one sets `exit_status`: 0 answered, 1 the log could not be read or
// nothing was found, 3 more unfreed than --fail-on-leak allows. Wrong usage is thrown as CLI::ParseError.
void add_verb(CLI::App& app, int& exit_status);

}  // namespace quarl::report
