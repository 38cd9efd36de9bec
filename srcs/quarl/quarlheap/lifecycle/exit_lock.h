// hook_mutex for what may run inside a hook of the same thread: in a signal handler, or as an item's handler.
#pragma once

#include "state/hook_lock.h"

namespace quarl {

// Takes the lock unless this thread has it.
class ExitLock {
 public:
  ExitLock() NO_THREAD_SAFETY_ANALYSIS : taken_(!hook_mutex.held_by_this_thread()) {
    if (taken_) hook_mutex.lock();
  }
  ~ExitLock() NO_THREAD_SAFETY_ANALYSIS {
    if (taken_) hook_mutex.unlock();
  }
  ExitLock(const ExitLock&) = delete;
  ExitLock& operator=(const ExitLock&) = delete;

 private:
  const bool taken_;
};

}  // namespace quarl
