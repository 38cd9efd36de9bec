// SPDX-License-Identifier: Apache-2.0
// Which libquarl.so a program gets.
#pragma once

#include <string>

#include "target/elf_target.h"

namespace quarl {

// The library of that target: the given file, or ("" for none) the one beside this tool: ../TARGET/libquarl.so in a
// build folder, ../lib/quarl/TARGET/libquarl.so when installed. An absolute path.
// A Refusal when there is none, when it is for another target, or when the loader could not take its path.
std::string find_library(Target target, const std::string& given);

}  // namespace quarl
