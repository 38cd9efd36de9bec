#include "quarlheap/model/call_trace.h"

#include "frame.h"
#include "platform/code_map.h"
#include "platform/print.h"
#include "platform/stack.h"

namespace quarl {

constinit CodeRange main_range{};
constinit CodeRange clone_range{};

namespace {

bool is_outermost(uint32_t address) {
  return main_range.holds(address) || clone_range.holds(address);
}

[[gnu::cold, gnu::noinline]] int complain_of_depth() {
  print(kStderr, "Max stack size must below 64\n");
  return kMaxTrace;
}

}  // namespace

// Every allocation comes here, so a frame costs a few comparisons and no more. Each frame lies higher than the one
// before, which is why the lower end of the stack is looked at once.
[[gnu::noinline]] int capture_trace(uint32_t* buf, int max) {
  auto fp = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  if (__builtin_expect(max > kMaxTrace, 0)) max = complain_of_depth();
  const StackRange stack = stack_around(fp);
  if (fp + static_cast<uintptr_t>(frame::kLowestWord) < stack.low) return 0;
  const uintptr_t highest = stack.high - frame::kEnd;
  uint32_t* out = buf;
  uint32_t* const end = buf + max;
  int step = 0;  // the first address is the hook's own, and the next one takes its place
  while (out < end && fp % 4 == 0 && fp <= highest) {
    uint32_t address = frame::return_address(fp);
    const CodeKind kind = code_kind(address);
    if (kind == CodeKind::kNone) break;
    *out = address;
    out += step;
    step = 1;
    if (kind == CodeKind::kStartup && frame::returns_without_frame(address)) {
      address = frame::frameless_return_address(fp);
      if (out < end) *out++ = address;
    }
    if (is_outermost(address)) break;
    const uintptr_t next = frame::caller_frame(fp);
    if (next <= fp) break;
    fp = next;
  }
  return static_cast<int>(out - buf);
}

}  // namespace quarl
