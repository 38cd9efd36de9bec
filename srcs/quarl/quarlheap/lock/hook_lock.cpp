#include "quarlheap/lock/hook_lock.h"

#include "platform/system.h"
#include "platform/thread_cache.h"

namespace quarl {

constinit HookLock hook_mutex;

namespace {

constexpr uint32_t kWaiters = 0x80000000;
constexpr int kSpins = 64;

bool swap_word(uint32_t* word, uint32_t expected, uint32_t desired) {
  return __atomic_compare_exchange_n(word, &expected, desired, false, __ATOMIC_SEQ_CST, __ATOMIC_RELAXED);
}

}  // namespace

void HookLock::lock() NO_THREAD_SAFETY_ANALYSIS {
  if (__builtin_expect(!swap_word(&word_, 0, static_cast<uint32_t>(current_tid())), 0)) wait_and_lock();
}

bool HookLock::try_lock() NO_THREAD_SAFETY_ANALYSIS {
  return swap_word(&word_, 0, static_cast<uint32_t>(current_tid()));
}

void HookLock::wait_and_lock() {
  const KeepErrno keep;
  const auto self = static_cast<uint32_t>(current_tid());
  for (int spin = 0; spin < kSpins; ++spin) {
    if (__atomic_load_n(&word_, __ATOMIC_RELAXED) == 0 && swap_word(&word_, 0, self)) return;
  }
  for (;;) {
    const uint32_t seen = __atomic_load_n(&word_, __ATOMIC_RELAXED);
    if (seen == 0) {
      // Others may sleep on the word still: the mark stays until a release finds nobody to wake.
      if (swap_word(&word_, 0, self | kWaiters)) return;
    } else if ((seen & kWaiters) != 0 || swap_word(&word_, seen, seen | kWaiters)) {
      sys::futex_wait(&word_, seen | kWaiters);
    }
  }
}

void HookLock::release() {
  const uint32_t before = __atomic_exchange_n(&word_, 0, __ATOMIC_SEQ_CST);
  if (__builtin_expect((before & kWaiters) != 0, 0)) {
    const KeepErrno keep;
    sys::futex_wake(&word_, 1);
  }
}

void HookLock::unlock() NO_THREAD_SAFETY_ANALYSIS {
  for (;;) {
    do_pending();
    release();
    // A request made between the look and the release found the lock taken.
    if (__builtin_expect(__atomic_load_n(&pending_, __ATOMIC_SEQ_CST) == 0, 1) || !try_lock()) return;
  }
}

void HookLock::run_pending() {
  const KeepErrno keep;
  for (;;) {
    const uint32_t work = __atomic_exchange_n(&pending_, 0, __ATOMIC_SEQ_CST);
    if (work == 0) return;
    if (worker_ != nullptr) worker_(work);
  }
}

void HookLock::request(uint32_t work) NO_THREAD_SAFETY_ANALYSIS {
  const KeepErrno keep;
  __atomic_fetch_or(&pending_, work, __ATOMIC_SEQ_CST);
  if (try_lock()) unlock();
}

bool HookLock::held_by_this_thread() const {
  return (__atomic_load_n(&word_, __ATOMIC_RELAXED) & ~kWaiters) == static_cast<uint32_t>(current_tid());
}

void HookLock::reset_in_child() {
  word_ = 0;
  pending_ = 0;
}

}  // namespace quarl
