// SPDX-License-Identifier: Apache-2.0
// Messages under the lock.
#include "state/held_text.h"

#include <gtest/gtest.h>

#include <string>

namespace quarl {
namespace {

std::string written;

class HeldTextTest : public testing::Test {
 protected:
  void SetUp() override {
    written.clear();
    message_writer = [](int fd, const char* data, size_t size) {
      written += std::to_string(fd) + std::string(data, size);
    };
    hold_texts();
  }
  void TearDown() override {
    message_writer = before;
    message_keeper = nullptr;
  }

  const MessageWriter before = message_writer;
};

TEST_F(HeldTextTest, IsWrittenBehindTheReleaseInItsOrder) NO_THREAD_SAFETY_ANALYSIS {
  print(kStdout, "a");
  EXPECT_EQ(written, "1a");
  hook_mutex.lock();
  print(kStdout, "b");
  print(kStderr, "c");
  EXPECT_EQ(written, "1a");
  hook_mutex.unlock();
  EXPECT_EQ(written, "1a1b2c");
  hook_mutex.lock();
  hook_mutex.unlock();
  EXPECT_EQ(written, "1a1b2c");
}

TEST_F(HeldTextTest, DoesNotComeBehindAReport) NO_THREAD_SAFETY_ANALYSIS {
  TextBuffer<8> report;
  report.format("r");
  hook_mutex.lock();
  print(kStdout, "a");
  write_at_once(report);
  EXPECT_EQ(written, "1a1r");
  print(kStdout, "b");
  hook_mutex.unlock();
  EXPECT_EQ(written, "1a1r1b");
}

TEST_F(HeldTextTest, IsBounded) NO_THREAD_SAFETY_ANALYSIS {
  std::string all;
  hook_mutex.lock();
  for (int i = 0; i < 200; ++i) {
    print(kStdout, "%d.", i);
    all += "1" + std::to_string(i) + ".";
  }
  EXPECT_GT(written.size(), 0U);
  EXPECT_LT(written.size(), all.size());
  hook_mutex.unlock();
  EXPECT_EQ(written, all);
}

TEST_F(HeldTextTest, IsTheParentsWhenAProcessForks) NO_THREAD_SAFETY_ANALYSIS {
  hook_mutex.lock();
  print(kStdout, "a");
  hook_mutex.reset_in_child();
  hook_mutex.lock();
  hook_mutex.unlock();
  EXPECT_EQ(written, "");
}

}  // namespace
}  // namespace quarl
