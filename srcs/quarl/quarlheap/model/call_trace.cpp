#include "quarlheap/model/call_trace.h"

#include "frame.h"
#include "platform/code_map.h"
#include "platform/print.h"
#include "platform/stack.h"

namespace quarl {

constinit CodeRange main_range{};
constinit CodeRange clone_range{};

namespace {

bool is_frame(uintptr_t fp, const StackRange& stack) {
  return fp % 4 == 0 && fp + static_cast<uintptr_t>(frame::kLowestWord) >= stack.low &&
         fp + frame::kEnd <= stack.high && fp < stack.high;
}

bool is_outermost(uint32_t address) {
  return main_range.holds(address) || clone_range.holds(address);
}

// Stores what the frame at fp tells; false when the walk is at its end.
bool store_frame(uintptr_t fp, bool own_frame, uint32_t* buf, int max, int* count) {
  uint32_t address = frame::return_address(fp);
  const CodeKind kind = code_kind(address);
  if (kind == CodeKind::kNone) return false;
  if (!own_frame) buf[(*count)++] = address;
  if (kind == CodeKind::kStartup && frame::returns_without_frame(address)) {
    address = frame::frameless_return_address(fp);
    if (*count < max) buf[(*count)++] = address;
  }
  return !is_outermost(address);
}

}  // namespace

[[gnu::noinline]] int capture_trace(uint32_t* buf, int max) {
  uintptr_t fp = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  if (max > kMaxTrace) {
    print(kStderr, "Max stack size must below 64\n");
    max = kMaxTrace;
  }
  const StackRange stack = stack_around(fp);
  int count = 0;
  bool own_frame = true;
  while (count < max && is_frame(fp, stack) && store_frame(fp, own_frame, buf, max, &count)) {
    own_frame = false;
    const uintptr_t next = frame::caller_frame(fp);
    if (next <= fp) break;
    fp = next;
  }
  return count;
}

}  // namespace quarl
