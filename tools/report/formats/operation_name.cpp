// SPDX-License-Identifier: Apache-2.0
#include "report/formats/operation_name.h"

#include "quarl/logs/format.h"

namespace quarl::report {

const char* operation_name(int operation) {
  static constexpr const char* kNames[kOpCount] = {
      "malloc",    "realloc",     "calloc",          "free",      "memalign",   "mmap", "munmap",
      "chunk map", "chunk unmap", "realloc release", "mmap file", "munmap file"};
  return operation >= 0 && operation < kOpCount ? kNames[operation] : "unknown";
}

const char* result_name(int result) {
  switch (result) {
    case kKindAllocated:
      return "allocated";
    case kKindReleased:
      return "released";
    case kKindFailed:
      return "failed";
    case kKindSlopHead:
      return "head overrun";
    case kKindSlopTail:
      return "tail overrun";
    default:
      return "unknown";
  }
}

}  // namespace quarl::report
