// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/call_trace.h"

#include "frame.h"
#include "kept.h"
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
class Walk {
 public:
  // From a frame on, none of whose callers' lies above `highest`. Return addresses go to buf[0 .. max), max > 0.
  Walk(HookFrame hook, uintptr_t highest, uint32_t* buf, int max)
      : fp(hook), out(buf), end(buf + max), highest_(highest & ~3U), left_((highest_ - hook) / 4) {}

  // False when there is none behind it. Each lies higher than the one before.
  [[gnu::always_inline]] bool go_on() {
    const uintptr_t next = frame::caller_frame(fp);
    const uint32_t left = words_to_highest(next);
    if (left >= left_) return false;
    fp = next;
    left_ = left;
    return true;
  }

  uintptr_t fp;
  uint32_t* out;  // where the return address of the frame goes, or lies by now
  const uint32_t* end;

 private:
  // Of a frame above the highest, or whose address is no multiple of 4, more than of any other: the two low bits of the
  // distance become its high ones. So one comparison tests all that a frame has to be.
  uint32_t words_to_highest(uintptr_t frame) const {
    const uint32_t bytes = highest_ - frame;
    return bytes >> 2 | bytes << 30;
  }

  uintptr_t highest_;  // that a frame can have
  uint32_t left_;      // words from the present one to it
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
          (void)code_page(address);  // the walk of the usual depth goes by it
        }
        if (outermost.clone_holds(address)) walk.end = walk.out + 1;
      }
      if (outermost.main_holds(address)) walk.end = walk.out + 1;
    }
  } while (++walk.out != walk.end && walk.go_on());
  return static_cast<int>(walk.out - buf);
}

// The same for the usual depth, from the hook on, as one step behind the other, `first` entries of which are there
// already and `address` is the next. Leaves it to the other where a page has more on it than main and other code.
template <int first>
[[gnu::always_inline]] inline int walk_usual_depth(Walk walk, uint32_t address, HookFrame hook, uint32_t* buf) {
  const auto& pages = kept(code_pages);
  const auto& outermost = kept(outermost_code);
#pragma GCC unroll 8
  for (int entry = first; entry < kDefaultDepth; ++entry) {
    buf[entry] = address;
    const bool last = entry + 1 == kDefaultDepth;
    const CodePage& page = pages[address >> kCodePageLog2];
    if (last && (page & kCode) != 0) break;
    if (__builtin_expect(page != kCode, 0)) {
      // Read anew, so that the first look is part of a comparison.
      if (__atomic_load_n(&page, __ATOMIC_RELAXED) != (kCode | kMain)) {
        walk.out = buf + (entry == first ? 0 : entry);
        return walk_on(walk, hook, buf, kDefaultDepth);
      }
      if (outermost.main_holds(address)) return entry + 1;
    }
    if (!walk.go_on()) return entry + 1;
    address = frame::return_address(walk.fp);
  }
  return kDefaultDepth;
}

// Where public entries have no frame, the hook's holds the return addresses of both.
[[gnu::always_inline]] inline int walk_usual_depth(Walk walk, HookFrame hook, uint32_t* buf) {
  const uint32_t address = frame::return_address(hook);
  if (known_code_page(address) != (kCode | kFrameless) || !frame::returns_without_frame(address))
    return walk_usual_depth<0>(walk, address, hook, buf);
  buf[0] = address;
  return walk_usual_depth<1>(walk, frame::frameless_return_address(hook), hook, buf);
}

// On a stack that is not known yet, or for another depth.
[[gnu::noinline]] int walk_unusual(HookFrame fp, uintptr_t lowest, uint32_t* buf, int max) {
  if (max > kMaxTrace) max = complain_of_depth();
  const StackRange stack = stack_around(fp);
  const uintptr_t highest = stack.high - frame::kEnd;
  if (max <= 0 || lowest < stack.low || fp > highest) return 0;
  return walk_on(Walk(fp, highest, buf, max), fp, buf, max);
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
    return walk_usual_depth(Walk(fp, thread_cache().stack_high - frame::kEnd, buf, kDefaultDepth), fp, buf);
  }
  return walk_unusual(fp, lowest, buf, max);
}

}  // namespace quarl
