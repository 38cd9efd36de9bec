// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/live_pages.h"

#include "platform/system.h"

namespace quarl {

constinit uint8_t blocks_on_page[kPages]{};
constinit uint8_t live_pages[kPages]{};

namespace {

// Each page other than that of the links once. A guard may begin on the page before the one on which it ends.
template <typename Visit>
void visit_far_pages(Address p, Address lowest, Address last, Visit visit) REQUIRES(hook_mutex) {
  const uint32_t links = (p - 4) >> kPageShift;
  const uint32_t below = lowest >> kPageShift;
  const uint32_t above = last >> kPageShift;
  const uint32_t guard = (last - 3) >> kPageShift;
  if (below != links) visit(below);
  if (above != links && above != below) visit(above);
  if (guard != above && guard != links && guard != below) visit(guard);
}

}  // namespace

void enter_far_pages(Address p, Address lowest, Address last) {
  visit_far_pages(p, lowest, last, [](uint32_t page) REQUIRES(hook_mutex) { enter_page(page); });
}

// A header that was overwritten to fit may name other pages than it did when the block was made.
void leave_far_pages(Address p, Address lowest, Address last) {
  visit_far_pages(p, lowest, last, [](uint32_t page) REQUIRES(hook_mutex) {
    if (blocks_on_page[page] > 0) leave_page(page);
  });
}

bool memory_exists(Address address) {
  return page_is_live(address) || sys::word_exists(static_cast<const uint32_t*>(pointer_to(address & ~3U)));
}

}  // namespace quarl
