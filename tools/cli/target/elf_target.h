// SPDX-License-Identifier: Apache-2.0
// For which of the checker's targets a program or library was built.
#pragma once

#include <string>

namespace quarl {

enum class Target { kI686, kArmhf, kArmel };

struct ElfFile {
  Target target;
  std::string interpreter;  // its dynamic loader; empty for a static program or a library
};

// "i686", "armhf" or "armel".
const char* target_name(Target target);

// A Refusal that says what to do when the file is no 32-bit little-endian ARM or i686 file.
ElfFile read_elf(const std::string& path);

}  // namespace quarl
