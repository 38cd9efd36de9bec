// SPDX-License-Identifier: Apache-2.0
// hook_mutex, the one process-wide lock. It guards the used list, header links, the mapping records, the statistics,
// the record buffers, the sequence counter, the log descriptors and the reload. Not recursive, but it knows its owner:
// code that may run in a signal handler, or in exit() called under the lock, can ask.
//
// Signal handlers never block on it. They leave their work as pending bits and try the lock; when it is taken, whoever
// releases it does the work first, and looks again afterwards, so that no request is lost. What must not be done under
// the lock, because it may wait for others, its owner does behind the release.
#pragma once

#include <cstdint>

#include "platform/annotations.h"
#include "platform/thread_cache.h"

namespace quarl {

// Work that signal handlers ask for.
enum PendingWork : uint32_t {
  kPendingTick = 1,   // the interval timer
  kPendingCheck = 2,  // heap check
  kPendingDump = 4,   // write the logs
};

// What the lock's owner leaves for the moment after its release.
enum LeftWork : uint32_t {
  kPendingTexts = 8,    // write the texts that were held back
  kPendingEnd = 16,     // end the process, as an item asks
  kPendingSignal = 32,  // let a signal come that was put off
};

class CAPABILITY("mutex") HookLock {
 public:
  // `tid` is current_tid(), for a caller that knows it already.
  [[gnu::always_inline]] void lock(uint32_t tid) ACQUIRE() NO_THREAD_SAFETY_ANALYSIS {
    if (__builtin_expect(!swap_word(0, tid, __ATOMIC_ACQUIRE), 0)) wait_and_lock();
  }
  bool try_lock() TRY_ACQUIRE(true) NO_THREAD_SAFETY_ANALYSIS { return swap_word(0, own_word(), __ATOMIC_ACQUIRE); }
  [[gnu::always_inline]] void unlock(uint32_t tid) RELEASE() NO_THREAD_SAFETY_ANALYSIS {
    if (__builtin_expect(!swap_word(tid, 0, __ATOMIC_RELEASE), 0)) finish_and_release();
  }
  void lock() ACQUIRE() { lock(own_word()); }
  void unlock() RELEASE() { unlock(own_word()); }
  // For a thread that has to go on all the same. True when it got the lock within that time.
  bool lock_within(int milliseconds) TRY_ACQUIRE(true);
  bool held_by_this_thread() const;
  void assert_held() const ASSERT_CAPABILITY(this) {}

  // Safe in a signal handler: has the work done now, or by the lock's owner.
  void request(uint32_t work) EXCLUDES(this);

  // For the thread that holds the lock: it does the work itself when it has released it.
  void leave_for_release(LeftWork work) REQUIRES(this);
  // The process ends at the release: nothing else is begun.
  bool ends_at_release() const REQUIRES(this) { return (pending_ & kPendingEnd) != 0; }

  // What does the requested work, called under the lock. Set once by the constructor.
  void set_worker(void (*worker)(uint32_t work)) { worker_ = worker; }

  // Over a fork. The C library may have to wait for locks of its own meanwhile, whose owners may wait for this one: so
  // whoever has waited for it for a second takes it over, and the thread that forks does so at once.
  void hold_for_fork();
  bool held_for_fork() const;  // by this thread, and not taken over
  void end_fork_hold();        // nothing when it was taken over

  // In a forked child: nobody holds the lock, nothing is pending.
  void reset_in_child();

 private:
  static constexpr uint32_t kWaiters = 0x80000000;
  static constexpr uint32_t kForkHold = 0x40000000;
  static constexpr uint32_t kAsked = 0x20000000;

  static uint32_t own_word() { return static_cast<uint32_t>(current_tid()); }
  bool swap_word(uint32_t expected, uint32_t desired, int order) {
    return __atomic_compare_exchange_n(&word_, &expected, desired, false, order, __ATOMIC_RELAXED);
  }
  uint32_t word() const { return __atomic_load_n(&word_, __ATOMIC_RELAXED); }
  bool pending() const { return __atomic_load_n(&pending_, __ATOMIC_RELAXED) != 0; }
  void release();
  void have_pending_done();
  [[gnu::cold, gnu::noinline]] void wait_and_lock();
  bool spin_and_take(uint32_t taken);
  bool sleep_or_take_over(uint32_t seen);
  [[gnu::cold, gnu::noinline]] void finish_and_release();
  uint32_t run_pending();  // what is left for after the release

  // 0: free; else the owner's task id, with kWaiters when a thread may sleep on it, kForkHold over a fork, kAsked when
  // there is pending work. So the owner who finds his task id alone when he releases it has nothing else to do.
  uint32_t word_ = 0;
  uint32_t pending_ = 0;
  void (*worker_)(uint32_t) = nullptr;
};

// What malloc and free count for the whole process.
struct HotFigures {
  uint64_t malloc_bytes, free_bytes;
  uint32_t malloc_calls, free_calls;
  uint32_t unfree_size, unfree_peak;
};

// The words that every allocation and every release writes, beside the lock that guards them: they go from one
// processor to the next as one cache line. Each has a name of its own where it belongs.
struct alignas(64) HotWords {
  HookLock lock;
  uint32_t last_seq_num;
  uint32_t heap_block_head, heap_block_tail, heap_block_count;
  bool used_list_closed;
  HotFigures figures;
};
static_assert(sizeof(HotWords) == 64);
extern HotWords hot_words;

inline constexpr HookLock& hook_mutex = hot_words.lock;

class SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(int tid = current_tid()) ACQUIRE(hook_mutex) : tid_(static_cast<uint32_t>(tid)) {
    hook_mutex.lock(tid_);
  }
  ~ScopedLock() RELEASE() { hook_mutex.unlock(tid_); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  const uint32_t tid_;
};

}  // namespace quarl
