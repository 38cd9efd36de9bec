// SPDX-License-Identifier: Apache-2.0
// hook_mutex for what may run inside a hook of the same thread: in a signal handler, or as an item's handler.
#pragma once

#include "state/held_text.h"
#include "state/hook_lock.h"

namespace quarl {

// Takes the lock unless this thread has it, and will not release it any more, or not before the process is confined:
// what is to be printed is printed then.
class ExitLock {
 public:
  ExitLock() NO_THREAD_SAFETY_ANALYSIS : taken_(!hook_mutex.held_by_this_thread()) {
    if (taken_) hook_mutex.lock();
  }
  ~ExitLock() NO_THREAD_SAFETY_ANALYSIS { taken_ ? hook_mutex.unlock() : write_held_texts(take_held_texts()); }
  bool interrupted_a_hook() const { return !taken_; }
  ExitLock(const ExitLock&) = delete;
  ExitLock& operator=(const ExitLock&) = delete;

 private:
  const bool taken_;
};

}  // namespace quarl
