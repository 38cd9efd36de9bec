// SPDX-License-Identifier: Apache-2.0
#include "platform/thread_cache.h"

constinit thread_local quarl::ThreadCache quarl_thread_cache{};

namespace quarl {

constinit ThreadGreeter thread_greeter = nullptr;

int meet_thread() {
  const int tid = pthread_self_pid();
  thread_cache().tid = tid;
  if (thread_greeter != nullptr) thread_greeter();
  return tid;
}

}  // namespace quarl
