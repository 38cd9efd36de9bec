// SPDX-License-Identifier: Apache-2.0
#include "frames/sources/rule_source.h"

namespace quarl::frames {

const char* source_name(Source source) {
  static constexpr const char* kNames[kSourceCount] = {"debug_frame", "eh_frame", "exidx", "derived"};
  return kNames[static_cast<int>(source)];
}

}  // namespace quarl::frames
