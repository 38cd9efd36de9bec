// SPDX-License-Identifier: Apache-2.0
// Addresses of code that stand in a file's data.
#pragma once

#include <cstdint>
#include <vector>

#include "frames/elf/elf_module.h"

namespace quarl::frames {

// The functions that the search table of .eh_frame_hdr lists.
std::vector<uint32_t> eh_frame_functions(const ElfModule& module);

// i386: whether .eh_frame knows the function of `address`.
bool in_eh_frame(const ElfModule& module, uint32_t address);

// The words that are pointers into the file itself: those that the loader relocates by its load address alone, or, in a
// program that is not relocated, all words of its data.
std::vector<uint32_t> relocated_words(const ElfModule& module);

}  // namespace quarl::frames
