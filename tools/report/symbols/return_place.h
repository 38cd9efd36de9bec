// SPDX-License-Identifier: Apache-2.0
// Where a return address leads in a file of the desk, and what is known of the call there.
#pragma once

#include <cstdint>

#include "report/symbols/symbol_file.h"

namespace quarl::report {

enum class Landing {
  kBehindCall,
  kFunctionStart,  // what a signal handler returns to: a routine that the kernel entered
  kAstray,
};

struct ReturnPlace {
  SymbolFile* file;
  bool thumb;       // an odd address in ARM code
  uint64_t offset;  // in the file, of what is returned to

  // `before`: where the byte in front of the return address lies in the file.
  ReturnPlace(SymbolFile* in, uint32_t address, uint64_t before)
      : file(in), thumb(in != nullptr && in->is_arm() && (address & 1) != 0), offset(before + 1 - (thumb ? 1 : 0)) {}

  // Needs the file, as the next does.
  Landing landing() const;
  // `frame` with what is known of the call, which ends one byte before, and behind it what it was inlined into.
  Frames frames(Frame frame, Landing landing) const;
};

}  // namespace quarl::report
