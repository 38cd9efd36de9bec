// SPDX-License-Identifier: Apache-2.0
// The frame of ARM code built with -mapcs-frame: the frame pointer points at the saved program counter.
//
//   fp + 8   second word above the frame: the return address of a caller without a frame of its own that pushed
//            {sl, lr} before it called
//   fp + 4   first word above the frame
//   fp       saved pc
//   fp - 4   saved lr: the return address
//   fp - 8   saved sp
//   fp - 12  the caller's frame pointer
#pragma once

#include <string.h>

#include <cstdint>

#include "platform/address.h"

namespace quarl::frame {

inline constexpr int kLowestWord = -12;  // offsets from the frame pointer that the walk may read, [lowest, end)
inline constexpr int kEnd = 12;

inline uint32_t return_address(uintptr_t fp) {
  return word_at(fp - 4);
}
inline uintptr_t caller_frame(uintptr_t fp) {
  return word_at(fp - 12);
}

// ldmfd sp!, {sl, pc}: the return of a routine without a frame.
inline constexpr uint8_t kFramelessReturn[] = {0x00, 0x84, 0xBD, 0xE8};
inline constexpr uint32_t kFramelessReturnWord = 0xE8BD8400;  // the same, read as a word

// True when it is the code at `address`, which may be odd (Thumb) or unaligned.
inline bool returns_without_frame(uint32_t address) {
  uint32_t code = 0;
  memcpy(&code, pointer_to(address), sizeof code);
  return code == kFramelessReturnWord;
}

// Whether it can be anywhere on a page, the smallest of the target's: all of it, or its beginning at the end.
inline bool may_return_without_frame(uint32_t page_start) {
  constexpr uint32_t kPage = 4096;
  constexpr uint32_t kLength = sizeof kFramelessReturn;
  if (memmem(pointer_to(page_start), kPage, kFramelessReturn, kLength) != nullptr) return true;
  for (uint32_t there = 1; there < kLength; ++there) {
    if (memcmp(pointer_to(page_start + kPage - there), kFramelessReturn, there) == 0) return true;
  }
  return false;
}
inline uint32_t frameless_return_address(uintptr_t fp) {
  return word_at(fp + 8);
}

}  // namespace quarl::frame
