// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/model/call_trace.h"

#include <gtest/gtest.h>

#include "platform/code_map.h"
#include "platform/stack.h"
#include "quarlheap/model/code_pages.h"

namespace quarl {
namespace {

struct Walk {
  int max = kMaxTrace;
  int count = -1;
  uint32_t words[kMaxTrace + 1] = {};
};

// The one who captures is the hook: the first entry leads into its caller.
[[gnu::noinline]] void hook(Walk* walk) {
  walk->words[kMaxTrace] = 0x55AA55AA;
  walk->count = capture_trace(this_frame(), walk->words, walk->max);
  asm volatile("" ::: "memory");
}
[[gnu::noinline]] void recurse(Walk* walk, int times) {
  if (times > 0) {
    recurse(walk, times - 1);
  } else {
    hook(walk);
  }
  asm volatile("" ::: "memory");
}

CodeRange range_around(void (*function)(Walk*, int)) {
  const auto start = reinterpret_cast<uint32_t>(function);
  return {start, start + 256};
}

class CallTraceTest : public testing::Test {
 protected:
  void SetUp() override {
    MapsReader maps;
    for (MapsLine line; maps.next(&line);) {
      learn_startup_code(line);
      learn_main_stack(line);
    }
    set_outermost_code({}, {});
  }
  void TearDown() override { set_outermost_code({}, {}); }
};

TEST_F(CallTraceTest, DepthIsBounded) {
  for (int max : {0, 1, 2, 8, 63, 64, 65, 1000}) {
    Walk walk;
    walk.max = max;
    recurse(&walk, 100);
    EXPECT_EQ(walk.count, std::min(max, kMaxTrace));
    EXPECT_EQ(walk.words[kMaxTrace], 0x55AA55AAU);
  }
}

TEST_F(CallTraceTest, EndsAtTheOutermostFunction) {
  const auto as_main = [](CodeRange range) { set_outermost_code(range, {}); };
  const auto as_clone = [](CodeRange range) { set_outermost_code({}, range); };
  for (void (*set)(CodeRange) : {+as_main, +as_clone}) {
    Walk free_walk;
    recurse(&free_walk, 3);
    EXPECT_GT(free_walk.count, 4);
    const CodeRange range = range_around(recurse);
    set(range);
    Walk stopped;
    recurse(&stopped, 3);
    EXPECT_EQ(stopped.count, 1) << "its first return address lies in the range and is its last entry";
    EXPECT_TRUE(range.holds(stopped.words[0]));
    // both bounds are exclusive
    set({stopped.words[0], stopped.words[0] + 1});
    Walk on_the_bound;
    recurse(&on_the_bound, 3);
    EXPECT_GT(on_the_bound.count, 1);
    set({});
  }
}

}  // namespace
}  // namespace quarl
