// What a call-trace walk has to look for at the return addresses on each page of memory: on most pages of code nothing.
#pragma once

#include <cstdint>

namespace quarl {

enum class CodePage : uint8_t {
  kNone,   // no code, as far as is known
  kPlain,  // a return address is an entry of the trace, and nothing more
  kRange,  // outermost code may be there; not to be read
  kRead,   // that, or a return without a frame; may be read
};

// Where a walk stops: a return address strictly between start and end is its last entry. 0, 0 stops nothing.
struct CodeRange {
  uint32_t start;
  uint32_t end;
  constexpr bool holds(uint32_t address) const { return start < address && address < end; }
};

// The code of `main` and of `clone`.
void set_outermost_code(CodeRange main, CodeRange clone);
bool is_outermost(uint32_t address);

// Looks at the page of an address as a walk meets it. Takes no lock, allocates nothing, may read /proc/self/maps. What
// it finds to be code stays so.
[[gnu::cold, gnu::noinline]] CodePage learn_code_page(uint32_t address);

inline constexpr uint32_t kCodePageLog2 = 12;

// In zero memory that only the parts in use are touched of.
extern CodePage code_pages[1U << (32 - kCodePageLog2)];

inline CodePage code_page(uint32_t address) {
  const CodePage kind = __atomic_load_n(&code_pages[address >> kCodePageLog2], __ATOMIC_RELAXED);
  return __builtin_expect(kind != CodePage::kNone, 1) ? kind : learn_code_page(address);
}

inline bool is_plain_code(uint32_t address) {
  const CodePage kind = __atomic_load_n(&code_pages[address >> kCodePageLog2], __ATOMIC_RELAXED);
  return __builtin_expect(kind == CodePage::kPlain, 1);
}

}  // namespace quarl
