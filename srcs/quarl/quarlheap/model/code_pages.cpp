#include "quarlheap/model/code_pages.h"

#include "frame.h"
#include "platform/code_map.h"

namespace quarl {

constinit CodePage code_pages[1U << (32 - kCodePageLog2)]{};

namespace {

constinit CodeRange outermost[2]{};

constexpr uint32_t page_of(uint32_t address) {
  return address >> kCodePageLog2;
}

bool outermost_is_on(uint32_t page) {
  for (const CodeRange& range : outermost) {
    if (range.start < range.end && page_of(range.start) <= page && page <= page_of(range.end - 1)) return true;
  }
  return false;
}

CodePage look_at(uint32_t address) {
  const uint32_t page = page_of(address);
  switch (code_kind(address)) {
    case CodeKind::kStartup:
      return outermost_is_on(page) || frame::may_return_without_frame(page << kCodePageLog2) ? CodePage::kRead
                                                                                             : CodePage::kPlain;
    case CodeKind::kLate:
      return outermost_is_on(page) ? CodePage::kRange : CodePage::kPlain;
    case CodeKind::kNone:
      break;
  }
  return CodePage::kNone;
}

void keep(uint32_t page, CodePage kind) {
  __atomic_store_n(&code_pages[page], kind, __ATOMIC_RELAXED);
}

void forget_outermost() {
  for (const CodeRange& range : outermost) {
    for (uint32_t page = page_of(range.start); page <= page_of(range.end); ++page) keep(page, CodePage::kNone);
  }
}

}  // namespace

void set_outermost_code(CodeRange main, CodeRange clone) {
  forget_outermost();
  outermost[0] = main;
  outermost[1] = clone;
  forget_outermost();
}

bool is_outermost(uint32_t address) {
  return outermost[0].holds(address) || outermost[1].holds(address);
}

CodePage learn_code_page(uint32_t address) {
  const CodePage kind = look_at(address);
  if (kind != CodePage::kNone) keep(page_of(address), kind);
  return kind;
}

}  // namespace quarl
