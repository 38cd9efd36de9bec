// SPDX-License-Identifier: Apache-2.0
// Which addresses are code of the process: a return address that is not ends a call-trace walk.
#pragma once

#include <cstdint>

#include "platform/maps_reader.h"

namespace quarl {

enum class CodeKind : uint8_t {
  kNone,
  kStartup,  // mapped when the checker started: the program and what it needs, never unmapped, safe to read
  kLate,     // loaded afterwards: known as code, never read, since it may be unloaded at any moment
};

// Called by the constructor for each line. Without /proc/self/maps every address counts as late code.
void learn_startup_code(const MapsLine& line);

// Mapped when the checker started.
bool is_startup_code(uint32_t address);

// Takes no lock, allocates nothing. May read /proc/self/maps: to be asked once for each page.
CodeKind code_kind(uint32_t address);

}  // namespace quarl
