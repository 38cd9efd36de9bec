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

// True when the code at `address` is ldmfd sp!, {sl, pc}: the return of a routine without a frame. The address may be
// odd (Thumb) or unaligned, so the word is taken byte by byte.
inline bool returns_without_frame(uint32_t address) {
  const auto* code = reinterpret_cast<const uint8_t*>(address);
  return code[0] == 0x00 && code[1] == 0x84 && code[2] == 0xBD && code[3] == 0xE8;
}
inline uint32_t frameless_return_address(uintptr_t fp) {
  return word_at(fp + 8);
}

}  // namespace quarl::frame
