// SPDX-License-Identifier: Apache-2.0
// One line of a call trace, as far as it could be resolved.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quarl::report {

struct Frame {
  uint32_t address = 0;          // of the call
  std::string module;            // path of the mapped file on the target, empty when the address lies in none
  uint64_t offset = 0;           // of the call in that file; the address itself without a module
  std::string function;          // demangled, empty when unknown
  uint64_t function_offset = 0;  // bytes from the function's start, where no source line is known
  bool nearest = false;          // the function ends before the call: there is no symbol for what lies there
  std::string file;              // source file, empty without line information
  int line = 0;
  bool inlined = false;  // inlined into the frame that follows
  std::string entry;     // of the first of a trace: the function of the allocator's that it called, when that is known
};

using Frames = std::vector<Frame>;

// "function", "near function" where that is only the last symbol before the call, or "module+0x12" or "0x12345678"
// where the function is unknown.
std::string name_of(const Frame& frame);

enum class Names { kWhole, kShort };
// name_of() with what is known of the place: "function (file.c:12)", "function+0x10 (libz.so.1)",
// "near function+0x1000 (libz.so.1)".
std::string describe(const Frame& frame, Names names = Names::kWhole);
// "file.c:12" or an empty text.
std::string source_of(const Frame& frame);

}  // namespace quarl::report
