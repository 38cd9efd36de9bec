// SPDX-License-Identifier: Apache-2.0
// The program break. The C library moves it under a lock of its allocator, other allocators under locks of their own,
// and the function by which both do it has none: two threads that moved it at once got the same memory. Where there is
// another allocator, both are at work, and each takes this lock first.
#pragma once

namespace quarl::glibc {

// Recursive. Held by whoever may move the break.
class BreakLock {
 public:
  BreakLock();
  ~BreakLock();
  BreakLock(const BreakLock&) = delete;
  BreakLock& operator=(const BreakLock&) = delete;
};

// In a forked child, on its only thread.
void reset_break_lock();

}  // namespace quarl::glibc
