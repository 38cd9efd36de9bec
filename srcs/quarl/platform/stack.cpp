// SPDX-License-Identifier: Apache-2.0
#include "platform/stack.h"

#include <sys/resource.h>
#include <unistd.h>

#include "platform/system.h"

namespace quarl {
namespace {

constexpr uintptr_t kPage = 4096;      // the smallest page of every target
constexpr uintptr_t kFrameReach = 64;  // bytes below a frame pointer that its own frame surely covers
constexpr uintptr_t kDefaultMainStack = 8U << 20;
constexpr uintptr_t kMaxMainStack = 64U << 20;

// Bytes below the main stack's top that are kept free for it: nothing else is ever mapped there.
uintptr_t main_stack_reserve() {
  struct rlimit limit {};
  if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kDefaultMainStack;
  return limit.rlim_cur < kMaxMainStack ? static_cast<uintptr_t>(limit.rlim_cur) : kMaxMainStack;
}

bool holds(const MapsLine& line, uintptr_t address) {
  return address >= line.low && address < line.high;
}

bool mapping_around(uintptr_t address, MapsLine* found) {
  MapsReader maps;
  while (maps.next(found)) {
    if (holds(*found, address)) return true;
  }
  return false;
}

// A created thread's static thread-local storage lies at the top of its stack, above every frame.
bool learn_thread_stack(uintptr_t present_frame) {
  const auto anchor = reinterpret_cast<uintptr_t>(&thread_cache());
  MapsLine mapping;
  if (!mapping_around(present_frame, &mapping) || anchor < present_frame || anchor >= mapping.high) return false;
  thread_cache().stack_low = mapping.low;
  thread_cache().stack_high = anchor;
  return true;
}

}  // namespace

void learn_main_stack(const MapsLine& mapping) {
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  if (!holds(mapping, here) || current_tid() != getpid()) return;
  const uintptr_t reserve = main_stack_reserve();
  thread_cache().stack_high = mapping.high;
  thread_cache().stack_low = mapping.high > reserve ? mapping.high - reserve : mapping.low;
  if (thread_cache().stack_low > mapping.low) thread_cache().stack_low = mapping.low;
}

StackRange find_stack(uintptr_t present_frame) {
  const KeepErrno keep;
  if (thread_cache().stack_high == 0 && learn_thread_stack(present_frame)) {
    return {thread_cache().stack_low, thread_cache().stack_high};
  }
  stack_t alternate{};
  if (sys::on_alternate_stack(&alternate)) {
    const auto low = reinterpret_cast<uintptr_t>(alternate.ss_sp);
    const uintptr_t high = low + alternate.ss_size;
    if (present_frame >= low && present_frame < high) return {low, high};
  }
  return {present_frame - kFrameReach, (present_frame | (kPage - 1)) + 1};
}

}  // namespace quarl
