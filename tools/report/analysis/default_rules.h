// SPDX-License-Identifier: Apache-2.0
// What the C and C++ libraries and the dynamic loader keep by design: what no call gives back, or what they hold for
// the rest of the process. A program can do nothing about it, so that it is no leak of the program's.
#pragma once

#include <string_view>
#include <vector>

#include "report/symbols/frame.h"

namespace quarl::report {

struct DefaultRule {
  const char* name;
  const char* library;    // whose functions these are: "libc", "ld.so", "libstdc++", "libgcc_s" or "libquarl"
  const char* functions;  // with blanks between; a '*' at the end stands for any characters
  // True when what one of them asked for itself is the program's, and only what others asked for on its behalf is kept.
  bool below_only;
  const char* what;  // for the reader: what is kept
};

const std::vector<DefaultRule>& default_rules();

// The rule that covers a block with this trace, null when there is none. Only the frames of these libraries at the
// front of the trace count, up to the first frame of any other code: of what a program's own function asked for, called
// back by a library, nothing is covered. A frame that is only near a function (Frame::nearest) is not in it.
const DefaultRule* default_rule_of(const Frames& frames);

}  // namespace quarl::report
