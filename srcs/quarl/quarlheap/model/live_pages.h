// SPDX-License-Identifier: Apache-2.0
// Which pages of memory hold live blocks' headers and guards: the memory that is known to be there. Two bytes a page
// for the whole address space, in zero memory that only the parts in use are touched of.
//
// A page is counted once for every live block that the checker reads on it: the word before the raw block, the header,
// and the guard, where there is one. More than a page's worth of the smallest blocks does not fit a page, so a byte is
// enough.
#pragma once

#include "platform/address.h"
#include "state/hook_lock.h"

namespace quarl {

inline constexpr uint32_t kPageShift = 12;  // of the smallest page; larger ones are several entries

inline constexpr uint32_t kPages = 1U << (32 - kPageShift);

extern uint8_t blocks_on_page[kPages];
// Whether there are any. In bytes of their own, which are written when a page's first block comes and when its last one
// goes: who frees a block looks at its neighbours' pages, where other threads count theirs all the time.
extern uint8_t live_pages[kPages];

// Whether a live block has something on the page of this address. Without the lock the answer may be old.
inline bool page_is_live(Address address) {
  return live_pages[address >> kPageShift] != 0;
}

// One block more or less on a page.
[[gnu::always_inline]] inline void enter_page(uint32_t page) REQUIRES(hook_mutex) {
  if (__builtin_expect(++blocks_on_page[page] == 1, 0)) live_pages[page] = 1;
}
[[gnu::always_inline]] inline void leave_page(uint32_t page) REQUIRES(hook_mutex) {
  if (__builtin_expect(--blocks_on_page[page] == 0, 0)) live_pages[page] = 0;
}

// Whether the word that holds this byte can be read. Asks the kernel about what is no live page.
[[gnu::cold, gnu::noinline]] bool memory_exists(Address address);

constexpr bool on_one_page(Address a, Address b) {
  return (a ^ b) >> kPageShift == 0;
}

// Whether so many bytes below p lie on the page that p itself is on.
constexpr bool page_holds(Address p, uint32_t bytes_below) {
  return (p & ((1U << kPageShift) - 1)) >= bytes_below;
}

// The pages of a block beside that of its links.
[[gnu::cold, gnu::noinline]] void enter_far_pages(Address p, Address lowest, Address last) REQUIRES(hook_mutex);
[[gnu::cold, gnu::noinline]] void leave_far_pages(Address p, Address lowest, Address last) REQUIRES(hook_mutex);

// A block at p becomes live, or ends: `lowest` is the address of its chunk word, `last` that of the last byte that is
// read of it.
inline void enter_pages(Address p, Address lowest, Address last) REQUIRES(hook_mutex) {
  enter_page((p - 4) >> kPageShift);
  if (__builtin_expect(!on_one_page(lowest, last), 0)) enter_far_pages(p, lowest, last);
}
inline void leave_pages(Address p, Address lowest, Address last) REQUIRES(hook_mutex) {
  leave_page((p - 4) >> kPageShift);
  if (__builtin_expect(!on_one_page(lowest, last), 0)) leave_far_pages(p, lowest, last);
}

}  // namespace quarl
