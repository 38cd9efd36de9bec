// SPDX-License-Identifier: Apache-2.0
// The program to run: found as a shell would find it, and for a script the interpreter that runs it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "target/elf_target.h"

namespace quarl {

struct Program {
  std::string path;  // of the ELF file that runs: the program, or a script's interpreter
  ElfFile elf;
  std::vector<std::string> leading;  // arguments before the user's: the interpreter's option and the script
};

// A name without "/" is looked up in PATH, first below the sysroot ("" for none), then on this machine.
// A Refusal that says what to do when nothing is found, or what is found cannot be checked.
Program find_program(const std::string& name, const std::string& sysroot);

// The first executable file of that name in PATH, below the prefix.
std::optional<std::string> search_path(const std::string& name, const std::string& prefix);

}  // namespace quarl
