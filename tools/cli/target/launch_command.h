// SPDX-License-Identifier: Apache-2.0
// The command that starts a program under the checker on this machine.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "target/program.h"

namespace quarl {

struct LaunchCommand {
  std::vector<std::string> argv;                                 // argv[0] is the path of the file to execute
  std::vector<std::pair<std::string, std::string>> environment;  // set in addition to the tool's own
  bool emulated;
};

// An i686 program is executed as it is, or by the loader of the sysroot ("" for none) with that root's libraries; an
// ARM program by qemu-arm when this machine is no ARM. LD_PRELOAD reaches the program alone, never the emulator.
// A Refusal that says what to install or to give when the loader, the sysroot or the emulator is missing.
LaunchCommand make_launch_command(const Program& program, const std::vector<std::string>& arguments,
                                  const std::string& library, const std::string& sysroot);

// The sysroot in use for a target when none is given: that of Debian's cross compilers; "" for i686.
std::string default_sysroot(Target target);

}  // namespace quarl
