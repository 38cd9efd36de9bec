// SPDX-License-Identifier: Apache-2.0
// What the loader maps for a program when it starts it.
#pragma once

#include <string>
#include <vector>

#include "target/launch_command.h"

namespace quarl {

// Files on this machine: the program and the libraries that its loader names when it is asked what it would load. The
// program is not started. Without an answer from the loader it is the program alone.
std::vector<std::string> loaded_files(const LaunchCommand& command, const Program& program, const std::string& sysroot);

}  // namespace quarl
