#include "quarlheap/model/call_trace.h"

#include "frame.h"
#include "platform/address.h"
#include "platform/print.h"
#include "platform/stack.h"
#include "quarlheap/model/code_pages.h"
#include "quarlheap/model/rule_trace.h"
#include "state/settings.h"

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

// The chain of frames behind one, as far as it was walked.
struct Walk {
  uintptr_t fp;
  uintptr_t highest;  // that a frame can have
  uint32_t* out;      // where the return address of the frame goes, or lies by now
  const uint32_t* end;

  // False when there is none behind it. Each lies higher than the one before.
  [[gnu::always_inline]] bool go_on() {
    const uintptr_t next = frame::caller_frame(fp);
    if (!frame::lies_behind(next, fp, highest) || next % 4 != 0) return false;
    fp = next;
    return true;
  }
};

// From the frame that the walk is at to its end. Returns the number of entries that lie in `buf` then.
[[gnu::always_inline]] inline int walk_on(Walk walk, HookFrame hook, uint32_t* buf, int max) {
  const Outermost outermost = outermost_code;
  do {
    uint32_t address = frame::return_address(walk.fp);
    *walk.out = address;
    CodePage page = known_code_page(address);
    if (page != kCode) {
      if (__builtin_expect(page != (kCode | kMain), 0)) {
        page = code_page(address);
        if (page == kNoCode) break;
        if ((page & kByRules) != 0) return capture_by_rules(hook, buf, max);
        if ((page & kFrameless) != 0 && frame::returns_without_frame(address)) {
          if (++walk.out == walk.end) break;
          *walk.out = address = frame::frameless_return_address(walk.fp);
        }
        if (outermost.clone_holds(address)) walk.end = walk.out + 1;
      }
      if (outermost.main_holds(address)) walk.end = walk.out + 1;
    }
  } while (++walk.out != walk.end && walk.go_on());
  return static_cast<int>(walk.out - buf);
}

// The same for the usual depth, from the hook on, as one step behind the other. Leaves it to the other where there is
// more on a page than plain code.
[[gnu::always_inline]] inline int walk_usual_depth(Walk walk, HookFrame hook, uint32_t* buf) {
#pragma GCC unroll 8
  for (int entry = 0; entry < kDefaultDepth; ++entry) {
    const uint32_t address = frame::return_address(walk.fp);
    buf[entry] = address;
    if (__builtin_expect(known_code_page(address) != kCode, 0)) {
      walk.out = buf + entry;
      return walk_on(walk, hook, buf, kDefaultDepth);
    }
    if (entry + 1 < kDefaultDepth && !walk.go_on()) return entry + 1;
  }
  return kDefaultDepth;
}

// On a stack that is not known yet, or for another depth.
[[gnu::noinline]] int walk_unusual(HookFrame fp, uintptr_t lowest, uint32_t* buf, int max) {
  if (max > kMaxTrace) max = complain_of_depth();
  const StackRange stack = stack_around(fp);
  const uintptr_t highest = stack.high - frame::kEnd;
  if (max <= 0 || lowest < stack.low || fp > highest) return 0;
  return walk_on({fp, highest, buf, buf + max}, fp, buf, max);
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
  const uintptr_t lowest = fp + static_cast<uintptr_t>(frame::kLowestWord);
  if (__builtin_expect(max == kDefaultDepth && own_stack_holds(lowest, fp + frame::kEnd), 1)) {
    return walk_usual_depth({fp, thread_cache().stack_high - frame::kEnd, buf, buf + max}, fp, buf);
  }
  return walk_unusual(fp, lowest, buf, max);
}

}  // namespace quarl
