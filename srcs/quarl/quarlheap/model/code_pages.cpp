// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/code_pages.h"

#include "frame.h"
#include "frames/rules.h"
#include "platform/code_map.h"

namespace quarl {

constinit Outermost outermost_code{};
constinit CodePage code_pages[1U << (32 - kCodePageLog2)]{};

namespace {

constinit CodeRange ranges[2]{};  // of main and of clone

constexpr uint32_t page_of(uint32_t address) {
  return address >> kCodePageLog2;
}

bool is_on(const CodeRange& range, uint32_t page) {
  return range.count() != 0 && page_of(range.start) <= page && page <= page_of(range.end - 1);
}

CodePage look_at(uint32_t address) {
  if (frames_in_use && own_code.holds(address)) return kByRules;
  const CodeKind kind = code_kind(address);
  if (kind == CodeKind::kNone) return kNoCode;
  const uint32_t page = page_of(address);
  const bool frameless = kind == CodeKind::kStartup && frame::may_return_without_frame(page << kCodePageLog2);
  return static_cast<CodePage>(kCode | (is_on(ranges[0], page) ? kMain : 0) | (is_on(ranges[1], page) ? kClone : 0) |
                               (frameless ? kFrameless : 0));
}

void keep(uint32_t page, CodePage kind) {
  __atomic_store_n(&code_pages[page], kind, __ATOMIC_RELAXED);
}

void forget_outermost() {
  for (const CodeRange& range : ranges) {
    for (uint32_t page = page_of(range.start); page <= page_of(range.end); ++page) keep(page, kNoCode);
  }
}

}  // namespace

void set_outermost_code(CodeRange main, CodeRange clone) {
  forget_outermost();
  ranges[0] = main;
  ranges[1] = clone;
  outermost_code = {main.first(), main.count(), clone.first(), clone.count()};
  forget_outermost();
}

CodePage learn_code_page(uint32_t address) {
  const CodePage page = look_at(address);
  if (page != kNoCode) keep(page_of(address), page);
  return page;
}

}  // namespace quarl
