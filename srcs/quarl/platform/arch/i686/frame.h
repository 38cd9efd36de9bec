// SPDX-License-Identifier: Apache-2.0
// The frame of i686 code built with -fno-omit-frame-pointer.
//
//   ebp + 4  the return address
//   ebp      the caller's frame pointer
#pragma once

#include <cstdint>

#include "platform/address.h"

namespace quarl::frame {

inline constexpr int kLowestWord = 0;  // offsets from the frame pointer that the walk may read, [lowest, end)
inline constexpr int kEnd = 8;

inline uint32_t return_address(uintptr_t fp) {
  return word_at(fp + 4);
}
inline uintptr_t caller_frame(uintptr_t fp) {
  return word_at(fp);
}

// Every routine that calls a hook has a frame here.
inline bool returns_without_frame(uint32_t) {
  return false;
}
inline bool may_return_without_frame(uint32_t) {
  return false;
}
inline uint32_t frameless_return_address(uintptr_t) {
  return 0;
}

}  // namespace quarl::frame
