// SPDX-License-Identifier: Apache-2.0
#include "platform/print.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>

#include "logs/files/file_result.h"

namespace quarl {
namespace {

// The conversions that the messages use, compared with the C library's.
TEST(Text, FormatsAsPrintf) {
#define EXPECT_AS_PRINTF(...)                                   \
  do {                                                          \
    TextBuffer<256> text;                                       \
    text.format(__VA_ARGS__);                                   \
    char expected[256];                                         \
    snprintf(expected, sizeof expected, __VA_ARGS__);           \
    EXPECT_EQ(std::string(text.data(), text.size()), expected); \
  } while (false)
  EXPECT_AS_PRINTF("%d %d %d", 0, INT_MAX, INT_MIN);
  EXPECT_AS_PRINTF("tid : %d\nsize : %ld\nstart_addr : 0x%lx\n", 7, LONG_MIN, ULONG_MAX);
  EXPECT_AS_PRINTF("%-10lu|%-10lu|%-llu", 1234567890UL, 0UL, ULLONG_MAX);
  EXPECT_AS_PRINTF("%-lld %lld", LLONG_MIN, LLONG_MAX);
  EXPECT_AS_PRINTF("%-5d   %-5d - %-5lld   %d\n", 0, 0, 99LL, -1);
  EXPECT_AS_PRINTF("%5d|%05d|%5s|%-5s|%c%%", 42, 42, "ab", "ab", 'x');
  EXPECT_AS_PRINTF("%p", reinterpret_cast<void*>(0x8000abcdUL));
  EXPECT_AS_PRINTF("%s%s", "", "text");
#undef EXPECT_AS_PRINTF
}

TEST(Text, CutsWhatDoesNotFit) {
  char buffer[9] = "????????";
  Text text(buffer, 4);
  text.format("%s", "abcdefgh").format("%d", 1);
  EXPECT_EQ(text.size(), 4U);
  EXPECT_STREQ(buffer, "abcd????");
  text.terminate();
  EXPECT_STREQ(buffer, "abc");
}

TEST(Print, WritesOnceAndKeepsErrno) {
  static std::string written;
  static int calls, descriptor;
  const MessageWriter before = message_writer;
  message_writer = [](int fd, const char* data, size_t size) {
    ++calls;
    descriptor = fd;
    written.assign(data, size);
  };
  errno = EAGAIN;
  EXPECT_FALSE(told(FileResult::failure(ENOSPC)));
  message_writer = before;
  EXPECT_EQ(written, "write log file failed,and error is No space left on device\n");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(descriptor, 1);
  EXPECT_EQ(errno, EAGAIN);
}

}  // namespace
}  // namespace quarl
