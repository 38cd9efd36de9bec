// SPDX-License-Identifier: Apache-2.0
#include "state/hook_lock.h"

#include "platform/late_signal.h"
#include "platform/process_end.h"
#include "platform/system.h"
#include "spin.h"
#include "state/held_text.h"

namespace quarl {

constinit HotWords hot_words{};

namespace {

// A hook holds the lock for some hundred instructions, so that a short wait mostly is enough; going to sleep and being
// woken costs some thousand on both sides.
constexpr int kSpins = 100;

constexpr int kForkPatience = 1000;  // milliseconds

}  // namespace

void HookLock::wait_and_lock() {
  const KeepErrno keep;
  uint32_t taken = own_word();
  // A thread that was woken spins again: the one that woke it has mostly taken the lock anew, and would have to wake it
  // again and again.
  while (!spin_and_take(taken)) {
    const uint32_t seen = word();
    if (seen == 0) continue;
    if ((seen & kWaiters) == 0 && !swap_word(seen, seen | kWaiters, __ATOMIC_SEQ_CST)) continue;
    if (sleep_or_take_over(seen | kWaiters)) return;
    // Others may sleep on the word still: the mark stays until a release finds nobody to wake.
    taken |= kWaiters;
  }
}

bool HookLock::spin_and_take(uint32_t taken) {
  for (int spin = 0; spin < kSpins; ++spin) {
    if (word() == 0 && swap_word(0, taken, __ATOMIC_SEQ_CST)) return true;
    relax();
  }
  return false;
}

// Does not sleep on the word: whoever has the lock may be stopped for ever.
bool HookLock::lock_within(int milliseconds) NO_THREAD_SAFETY_ANALYSIS {
  const KeepErrno keep;
  const uint32_t taken = own_word();
  for (; milliseconds >= 0; --milliseconds) {
    if (spin_and_take(taken)) return true;
    const uint32_t seen = word();
    if (held_for_fork() && swap_word(seen, taken | (seen & (kWaiters | kAsked)), __ATOMIC_SEQ_CST)) return true;
    sys::nap(1);
  }
  return false;
}

// True when the hold of a fork was taken over: by a thread that has waited for long, or by the forking one itself.
bool HookLock::sleep_or_take_over(uint32_t seen) {
  if ((seen & kForkHold) == 0) {
    sys::futex_wait(&word_, seen);
    return false;
  }
  if (!held_for_fork() && sys::futex_wait_for(&word_, seen, kForkPatience)) return false;
  return swap_word(seen, own_word() | kWaiters | (seen & kAsked), __ATOMIC_SEQ_CST);
}

void HookLock::hold_for_fork() NO_THREAD_SAFETY_ANALYSIS {
  lock();
  __atomic_fetch_or(&word_, kForkHold, __ATOMIC_SEQ_CST);
}

bool HookLock::held_for_fork() const {
  return (word() & ~(kWaiters | kAsked)) == (own_word() | kForkHold);
}

void HookLock::end_fork_hold() NO_THREAD_SAFETY_ANALYSIS {
  while (held_for_fork()) {
    const uint32_t seen = word();
    if ((seen & kForkHold) != 0 && swap_word(seen, seen & ~kForkHold, __ATOMIC_SEQ_CST)) return unlock();
  }
}

void HookLock::release() {
  const uint32_t before = __atomic_exchange_n(&word_, 0, __ATOMIC_SEQ_CST);
  if ((before & kWaiters) != 0) sys::futex_wake(&word_, 1);
}

// By the owner, who finds the mark at the latest when he releases the lock, or here and now.
void HookLock::have_pending_done() NO_THREAD_SAFETY_ANALYSIS {
  for (;;) {
    const uint32_t seen = word();
    if (seen == 0) {
      if (try_lock()) return finish_and_release();
    } else if ((seen & kAsked) != 0 || swap_word(seen, seen | kAsked, __ATOMIC_SEQ_CST)) {
      return;
    }
  }
}

uint32_t HookLock::run_pending() {
  uint32_t left = 0;
  for (;;) {
    const uint32_t work = __atomic_exchange_n(&pending_, 0, __ATOMIC_SEQ_CST);
    if (work == 0) return left;
    left |= work & (kPendingTexts | kPendingEnd | kPendingSignal);
    if (worker_ != nullptr) worker_(work);
  }
}

void HookLock::finish_and_release() NO_THREAD_SAFETY_ANALYSIS {
  const KeepErrno keep;
  const uint32_t left = run_pending();
  HeldText* texts = take_held_texts();
  release();
  write_held_texts(texts);
  if ((left & kPendingSignal) != 0) let_signal_come();
  if ((left & kPendingEnd) != 0) end_process();
  // Asked for between the last look and the release. The release is a barrier for both.
  if (pending()) have_pending_done();
}

void HookLock::leave_for_release(LeftWork work) {
  __atomic_fetch_or(&pending_, work, __ATOMIC_SEQ_CST);
  __atomic_fetch_or(&word_, kAsked, __ATOMIC_SEQ_CST);
}

void HookLock::request(uint32_t work) {
  const KeepErrno keep;
  __atomic_fetch_or(&pending_, work, __ATOMIC_SEQ_CST);
  have_pending_done();
  forget_exclusive_access();
}

bool HookLock::held_by_this_thread() const {
  return (word() & ~(kWaiters | kAsked)) == own_word();
}

void HookLock::reset_in_child() NO_THREAD_SAFETY_ANALYSIS {
  drop_held_texts(take_held_texts());  // which the parent writes
  word_ = 0;
  pending_ = 0;
}

}  // namespace quarl
