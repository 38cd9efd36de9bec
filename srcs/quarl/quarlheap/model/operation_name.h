// SPDX-License-Identifier: Apache-2.0
// What the operations are called in reports.
#pragma once

#include "logs/format.h"

namespace quarl {

inline const char* operation_name(uint8_t operation) {
  switch (operation) {
    case kOpMalloc:
      return "malloc";
    case kOpRealloc:
      return "realloc";
    case kOpCalloc:
      return "calloc";
    case kOpMemalign:
      return "memalign";
    default:
      return "unknown operation";
  }
}

}  // namespace quarl
