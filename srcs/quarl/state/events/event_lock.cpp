// SPDX-License-Identifier: Apache-2.0
#include "state/events/event_lock.h"

#include "platform/system.h"

namespace quarl {

constinit EventLock event_lock;

namespace {

constexpr int kPatience = 1000;  // milliseconds

}  // namespace

bool EventLock::take() {
  uint32_t free = kFree;
  if (__atomic_compare_exchange_n(&word_, &free, kTaken, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) return true;
  while (__atomic_exchange_n(&word_, kWaitedFor, __ATOMIC_ACQUIRE) != kFree) {
    if (!sys::futex_wait_for(&word_, kWaitedFor, kPatience)) return false;
  }
  return true;
}

void EventLock::release() {
  if (__atomic_exchange_n(&word_, kFree, __ATOMIC_RELEASE) == kWaitedFor) sys::futex_wake(&word_, 1);
}

}  // namespace quarl
