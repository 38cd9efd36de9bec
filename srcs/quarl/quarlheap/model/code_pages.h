// SPDX-License-Identifier: Apache-2.0
// What a call-trace walk has to look for at the return addresses on each page of memory: on most pages of code nothing.
#pragma once

#include <cstdint>

namespace quarl {

enum CodePage : uint8_t {
  kNoCode = 0,     // as far as is known
  kCode = 1,       // a return address is an entry of the trace, and nothing more but for:
  kMain = 2,       // it may lie in main
  kClone = 16,     // it may lie in clone
  kFrameless = 4,  // the code at it may be a return without a frame, and can be read
  kByRules = 8,    // of this library, where QUARL_FRAMES is set: the walk goes by rules (rule_trace.h)
};

// Where a walk stops: a return address strictly between start and end is its last entry. 0, 0 stops nothing.
struct CodeRange {
  uint32_t start;
  uint32_t end;
  constexpr uint32_t first() const { return start + 1; }
  constexpr uint32_t count() const { return end > start ? end - start - 1 : 0; }
  constexpr bool holds(uint32_t address) const { return address - first() < count(); }
};

// The code of `main` and of `clone`.
void set_outermost_code(CodeRange main, CodeRange clone);

// The same, as it is looked at.
struct Outermost {
  uint32_t main_first, main_count;
  uint32_t clone_first, clone_count;

  bool main_holds(uint32_t address) const { return address - main_first < main_count; }
  bool clone_holds(uint32_t address) const { return address - clone_first < clone_count; }
};
extern Outermost outermost_code;

inline bool is_outermost(uint32_t address) {
  return outermost_code.main_holds(address) || outermost_code.clone_holds(address);
}

inline constexpr uint32_t kCodePageLog2 = 12;

// In zero memory that only the parts in use are touched of.
extern CodePage code_pages[1U << (32 - kCodePageLog2)];

// Looks at the page of an address as a walk meets it. Takes no lock, allocates nothing, may read /proc/self/maps. What
// it finds to be code stays so.
[[gnu::cold, gnu::noinline]] CodePage learn_code_page(uint32_t address);

// kNoCode also where a walk was never before. A plain read, which the compiler makes part of a comparison: a byte is
// what it was or what it becomes.
inline CodePage known_code_page(uint32_t address) {
  return code_pages[address >> kCodePageLog2];
}

inline CodePage code_page(uint32_t address) {
  const CodePage page = known_code_page(address);
  return __builtin_expect(page != kNoCode, 1) ? page : learn_code_page(address);
}

}  // namespace quarl
