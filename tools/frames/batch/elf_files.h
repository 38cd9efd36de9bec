// SPDX-License-Identifier: Apache-2.0
// The ELF files that a command line means: those it names, and those below the folders it names.
#pragma once

#include <string>
#include <vector>

namespace quarl::frames {

struct ElfPath {
  std::string path;
  std::string target_path;  // as the target knows it
  bool named = false;       // on the command line itself
};

// Folders are walked without following symbolic links; of what lies there, only 32-bit programs and libraries for ARM
// and i386 are taken. A name that is not there is looked for below the sysroots. Throws std::runtime_error when it is
// nowhere.
std::vector<ElfPath> elf_files(const std::vector<std::string>& names, const std::vector<std::string>& sysroots);

}  // namespace quarl::frames
