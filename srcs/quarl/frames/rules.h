// SPDX-License-Identifier: Apache-2.0
// The rule by which a walk leaves a frame: looked up once for an address, and from a cache afterwards.
//
// The cache is one for the process. A slot has two words, of which the first says whether they belong together and to
// this generation, so that a thread or a handler that reads halfway through a change takes no wrong rule.
#pragma once

#include <cstdint>

#include "frames/step_word.h"
#include "kept.h"
#include "platform/address.h"

namespace quarl {

// Bases beside those of tables (FrameBase).
inline constexpr uint8_t kFrameByPointer = 0xF0;   // by the frame pointer: there is no rule
inline constexpr uint8_t kFrameOwn = 0xF1;         // by the frame pointer: this library
inline constexpr uint8_t kFrameSystemCall = 0xF2;  // the kernel's code for system calls

// Called once by the constructor, behind learn_startup_code. A trace has no entry behind one that is outermost.
void learn_startup_frames(bool (*is_outermost)(uint32_t address));

// There are tables to walk by. Never changes once the hooks are installed.
extern bool frames_in_use;
extern AddressRange own_code;  // this library's

// A walk that begins in the loader's code: it may be loading something, or only making room for a thread's variables.
// What is known of libraries that came after the start is looked up anew when it is loading.
//
// Between mapping a library's code and running any of it the loader allocates, through the public entries; so no code
// runs at an address for which an unloaded library's rules are still believed. Other code that takes the place of a
// library is mapped by the program: forget_code_in.
extern AddressRange loader_code;
void note_loader_at_work();

// The addresses are, or are about to be, somebody else's: rules of code that was there and tables that lie there are
// forgotten.
void forget_code_in(const AddressRange& range);

// Called once in each forked child, on its only thread.
void settle_frames_in_child();

namespace detail {
inline constexpr int kRuleSlotBits = 10;
struct RuleSlot {
  uint32_t check;  // check_word()
  StepWord step;
};
struct RuleCache {
  uint32_t generation_mark;
  RuleSlot slots[1 << kRuleSlotBits];
};
extern RuleCache rule_cache;

inline constexpr uint32_t kSpread = 0x9E3779B1;  // odd, near 2^32 divided by the golden ratio
inline uint32_t slot_of(uint32_t pc) {
  return pc * kSpread >> (32 - kRuleSlotBits);
}
inline uint32_t check_word(uint32_t pc, StepWord step, uint32_t mark) {
  return pc ^ step * kSpread ^ mark;
}
}  // namespace detail

// Takes no lock, allocates nothing. Seldom it reads /proc/self/maps and maps a table.
StepWord look_up_step(uint32_t pc, bool interrupted);

// What steps are taken by, as one walk uses it.
class StepCache {
 public:
  StepCache() : cache_(kept(detail::rule_cache)) {}

  // How to leave the frame to which a call returns at `pc`; 0 when there is no code. A rule stays readable for ever.
  [[gnu::always_inline]] StepWord at(uint32_t pc) const {
    const detail::RuleSlot& slot = cache_.slots[detail::slot_of(pc)];
    const StepWord step = __atomic_load_n(&slot.step, __ATOMIC_RELAXED);
    const uint32_t check = __atomic_load_n(&slot.check, __ATOMIC_RELAXED);
    const uint32_t mark = __atomic_load_n(&cache_.generation_mark, __ATOMIC_RELAXED);
    return __builtin_expect(check == detail::check_word(pc, step, mark), 1) ? step : look_up_step(pc, false);
  }

 private:
  const detail::RuleCache& cache_;
};

}  // namespace quarl
