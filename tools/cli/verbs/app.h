// SPDX-License-Identifier: Apache-2.0
// The command line of the tool: parses it and runs the verb that it names.
#pragma once

namespace quarl {

// The exit status. CLI11 stays behind this: what includes its headers compiles all of it.
int run_command_line(int argc, char** argv);

}  // namespace quarl
