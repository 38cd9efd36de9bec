// SPDX-License-Identifier: Apache-2.0
// The mmap hook's offset has 32 bits, mmap64's has 64. The public mmap64 keeps its offset here for the raw entry, which
// the hook reaches on the same thread.
#pragma once

#include <cstdint>

namespace quarl::glibc {

class BigOffset {
 public:
  BigOffset(int fd, uint64_t offset);
  ~BigOffset();
  BigOffset(const BigOffset&) = delete;
  BigOffset& operator=(const BigOffset&) = delete;
};

// The offset that a raw mapping call means.
uint64_t full_offset(int fd, long offset);

}  // namespace quarl::glibc
