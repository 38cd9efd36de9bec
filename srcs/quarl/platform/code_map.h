// Which addresses are code of the process: a return address that is not ends a call-trace walk.
#pragma once

#include <cstdint>

namespace quarl {

enum class CodeKind : uint8_t {
  kNone,
  kStartup,  // mapped when the checker started: the program and what it needs, never unmapped, safe to read
  kLate,     // loaded afterwards: known as code, never read, since it may be unloaded at any moment
};

// Called once by the constructor. Without /proc/self/maps every address counts as late code.
void learn_startup_code();

// Takes no lock, allocates nothing. Seldom (an address seen for the first time) it reads /proc/self/maps.
[[gnu::cold, gnu::noinline]] CodeKind code_kind_slow(uint32_t address);

namespace detail {
// One word a slot: page number << 2 | CodeKind. A slot is replaced by whichever page comes; words are plain, so a
// reader sees one whole entry or another.
inline constexpr uint32_t kPageSlots = 1024;
extern uint32_t page_cache[kPageSlots];
}  // namespace detail

inline CodeKind code_kind(uint32_t address) {
  const uint32_t page = address >> 12;
  const uint32_t slot = __atomic_load_n(&detail::page_cache[page % detail::kPageSlots], __ATOMIC_RELAXED);
  const uint32_t kind = slot ^ page << 2;  // 4 and more when the slot is another page's
  return __builtin_expect(kind - 1 < 2, 1) ? static_cast<CodeKind>(kind) : code_kind_slow(address);
}

}  // namespace quarl
