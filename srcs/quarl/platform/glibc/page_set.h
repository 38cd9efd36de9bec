// SPDX-License-Identifier: Apache-2.0
// A set of pages of the address space: 128 KiB of zeros, of which only what is used takes memory. Safe on any
// thread and in a signal handler.
#pragma once

#include "platform/address.h"

namespace quarl::glibc {

class PageSet {
 public:
  // All pages that [start, end) touches.
  void add(Address start, Address end) {
    for (uint32_t page = start >> kPageLog2; page <= (end - 1) >> kPageLog2; ++page) {
      if (!has(page)) __atomic_fetch_or(&words_[page / 32], 1U << page % 32, __ATOMIC_RELAXED);
    }
  }
  void remove(Address start, Address end) {
    for (uint32_t page = start >> kPageLog2; page <= (end - 1) >> kPageLog2; ++page) {
      __atomic_fetch_and(&words_[page / 32], ~(1U << page % 32), __ATOMIC_RELAXED);
    }
  }
  bool holds(Address address) const { return has(address >> kPageLog2); }

 private:
  static constexpr uint32_t kPageLog2 = 12;

  bool has(uint32_t page) const {
    return (__atomic_load_n(&words_[page / 32], __ATOMIC_RELAXED) >> page % 32 & 1) != 0;
  }

  uint32_t words_[1U << 15]{};
};

}  // namespace quarl::glibc
