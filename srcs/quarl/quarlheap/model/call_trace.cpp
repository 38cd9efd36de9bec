#include "quarlheap/model/call_trace.h"

#include "frame.h"
#include "platform/address.h"
#include "platform/print.h"
#include "platform/stack.h"
#include "quarlheap/model/code_pages.h"
#include "quarlheap/model/rule_trace.h"

// This library, from its first byte to the end of its code: of the linker's.
extern "C" const char __ehdr_start[] __attribute__((visibility("hidden")));
extern "C" const char etext[] __attribute__((visibility("hidden")));

namespace quarl {

namespace {

bool is_own_code(uint32_t address) {
  return address - address_of(__ehdr_start) < static_cast<uint32_t>(etext - __ehdr_start);
}

[[gnu::cold, gnu::noinline]] int complain_of_depth() {
  print(kStderr, "Max stack size must below 64\n");
  return kMaxTrace;
}

}  // namespace

// The outermost frame that returns into this library: behind a hook the next one is the public entry's, which may have
// no frame.
HookFrame hook_frame_of(HookFrame frame) {
  const StackRange stack = stack_around(frame);
  const uintptr_t highest = stack.high - frame::kEnd;
  const uintptr_t lowest = stack.low - static_cast<uintptr_t>(frame::kLowestWord);
  const auto readable = [=](uintptr_t fp) { return fp >= lowest && fp <= highest && fp % 4 == 0; };
  if (!readable(frame)) return frame;
  for (;;) {
    const uintptr_t next = frame::caller_frame(frame);
    if (next <= frame || !readable(next) || !is_own_code(frame::return_address(next))) return frame;
    frame = next;
  }
}

// Every allocation comes here, so a frame costs a few comparisons and no more. Each frame lies higher than the one
// before, which is why the lower end of the stack is looked at once.
int capture_trace(HookFrame fp, uint32_t* buf, int max) {
  if (__builtin_expect(max > kMaxTrace, 0)) max = complain_of_depth();
  const StackRange stack = stack_around(fp);
  const uintptr_t highest = stack.high - frame::kEnd;
  if (max <= 0 || fp + static_cast<uintptr_t>(frame::kLowestWord) < stack.low || fp > highest) return 0;
  uint32_t* out = buf;
  const uint32_t* end = buf + max;
  uintptr_t next = fp;
  do {
    fp = next;
    uint32_t address = frame::return_address(fp);
    *out = address;
    if (!is_plain_code(address)) {
      const CodePage page = code_page(address);
      if (page == kNoCode) break;
      if ((page & kByRules) != 0) return capture_by_rules(fp, buf, max);
      const bool frameless = (page & kFrameless) != 0 && frame::returns_without_frame(address);
      if (frameless) {
        address = frame::frameless_return_address(fp);
        if (++out == end) break;
        *out = address;
      }
      if (((page & kOutermost) != 0 || frameless) && is_outermost(address)) end = out + 1;
    }
    next = frame::caller_frame(fp);
  } while (++out != end && next > fp && next <= highest && next % 4 == 0);
  return static_cast<int>(out - buf);
}

}  // namespace quarl
