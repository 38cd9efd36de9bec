// SPDX-License-Identifier: Apache-2.0
// The configuration in force: two words of flags and the numeric settings. Items write them (under the hook lock once
// the hooks are installed); every thread reads them without a lock and sees the old or the new value of a word. Used
// before any constructor of the process runs, hence constinit throughout.
//
// The struct is pure: the tool on the desk keeps one of its own for a configuration that it looks at.
#pragma once

#include <cstdint>

#include "platform/annotations.h"

namespace quarl {

// Bits of cfg_flags. Bits without a name stay 0.
enum ConfigBit : uint32_t {
  kProf = 1U << 0,
  kThread = 1U << 1,
  kHeapLimit = 1U << 2,
  kStackLimit = 1U << 3,
  kRandomFail = 1U << 4,
  kDemoThread = 1U << 5,
  kReset = 1U << 6,
  kMemHead = 1U << 12,
  kHeadTid = 1U << 13,
  kHeadTime = 1U << 14,
  kHeadStackdepth = 1U << 15,
  kSlopover = 1U << 16,
  kMemCheckInHook = 1U << 17,
  kRecordLogAtFree = 1U << 18,
  kLogOverlay = 1U << 19,
  kReloadRequest = 1U << 20,  // no item: set by the signal dump, cleared by the hook that reloads
  kMemCheck = 1U << 21,
  kPrintProfinfo = 1U << 22,
  kTimer = 1U << 24,
  kAll = 1U << 28,
  kOutputLog = 1U << 29,
};

// Bits of slop_flags: what triggers the heap check.
enum SlopBit : uint32_t {
  kSlopTimer = 1U << 0,
  kSlopExit = 1U << 1,
  kSlopApi = 1U << 2,
  kSlopUser = 1U << 3,
  kSlopApiInHook = 1U << 17,  // stored, read by nothing
  kSlopMalloc = 1U << 28,
  kSlopFree = 1U << 29,
  kSlopThread = 1U << 30,  // stored, read by nothing
};

inline constexpr int kDefaultDepth = 8;
inline constexpr int kDefaultMapsKib = 32;

struct Settings {
  uint32_t cfg_flags = 0;
  uint32_t slop_flags = 0;
  int16_t stack_depth = kDefaultDepth;  // return addresses in a header, [2, 64]
  int maps_size_kb = kDefaultMapsKib;   // KiB of the maps section
  uint32_t trace_buf_size = 0;          // bytes of a record buffer, a multiple of 280
  int snap_detail = 0;                  // 1: automatic snapshots hold records
  int snap_interval = 0;                // seconds between automatic snapshots, 0: none
  uint32_t next_snap_time = 0;          // when the next one is due, in seconds of the checker clock
  int timer_clock_on = 0;               // 1: the interval timer is wanted or running
  int dump_signal = 0;                  // QUARL_SIG that is handled, 0: none
  int check_signal = 0;                 // of QUARL_SLOPOVER_USER
  int random_seeded = 0;                // 1: the generator of QUARL_RANDOM_FAIL was seeded
};
extern Settings settings;

inline uint32_t load_flags(const uint32_t& word) {
  return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

// Signal handlers set the reload request at any instant, so bits change by atomic operations only.
inline void set_flag(uint32_t& word, uint32_t bit) {
  __atomic_fetch_or(&word, bit, __ATOMIC_SEQ_CST);
}
inline void clear_flag(uint32_t& word, uint32_t bit) {
  __atomic_fetch_and(&word, ~bit, __ATOMIC_SEQ_CST);
}
inline void put_flag(uint32_t& word, uint32_t bit, bool on) {
  on ? set_flag(word, bit) : clear_flag(word, bit);
}

// Items that count only while blocks have headers at all.
inline constexpr uint32_t kHeaderItems = kHeadTid | kHeadTime | kHeadStackdepth | kSlopover;

// The flags as one call works with them: read once, so that a reload on another thread cannot change the layout of a
// block halfway through its making.
class Flags {
 public:
  Flags() : Flags(settings) {}
  explicit Flags(const Settings& from) : Flags(load_flags(from.cfg_flags), load_flags(from.slop_flags)) {}
  constexpr Flags(uint32_t cfg, uint32_t slop) : cfg_(cfg), force_(in_force_of(cfg)), slop_(slop) {}

  // All of the items are on and take effect: QUARL_ALL is on, and for a header item QUARL_MEM_HEAD too.
  constexpr bool in_force(uint32_t bits) const { return (force_ & bits) == bits; }
  constexpr bool any_in_force(uint32_t bits) const { return (force_ & bits) != 0; }
  constexpr bool header() const { return in_force(kMemHead); }
  constexpr bool prof() const { return in_force(kProf); }
  constexpr bool per_thread() const { return in_force(kProf | kThread); }
  constexpr bool record_log() const { return in_force(kOutputLog); }
  constexpr bool guard() const { return in_force(kSlopover); }
  constexpr bool reload_wanted() const { return in_force(kReloadRequest); }
  constexpr bool prints_statistics() const { return in_force(kPrintProfinfo | kProf); }
  constexpr bool check_trigger(uint32_t any_of) const { return (slop_ & any_of) != 0 && guard(); }
  // The bits are on, in force or not.
  constexpr bool set(uint32_t bits) const { return (cfg_ & bits) == bits; }
  // There is something that a hook does under the hook lock.
  constexpr bool tracked() const { return any_in_force(kMemHead | kProf | kOutputLog); }

 private:
  static constexpr uint32_t in_force_of(uint32_t cfg) {
    if ((cfg & kAll) == 0) return 0;
    return (cfg & kMemHead) != 0 ? cfg : cfg & ~kHeaderItems;
  }

  uint32_t cfg_;
  uint32_t force_;
  uint32_t slop_;
};

// The request for a reload, as the signal dump makes it.
inline void request_reload() {
  set_flag(settings.cfg_flags, kReloadRequest);
}

}  // namespace quarl

// Set by their items; the application and a debugger can see them.
extern "C" {
extern QUARL_EXPORT int qr_sig_num;     // signal of the interval timer
extern QUARL_EXPORT int QR_TRACE_MMAP;  // 1: live mappings are recorded
}
