// SPDX-License-Identifier: Apache-2.0
#include "logs/files/log_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>

#include "logs/files/record_buffer.h"
#include "logs/records/record.h"

namespace quarl {
namespace {

class LogFileTest : public testing::Test {
 protected:
  void SetUp() override {
    path = testing::TempDir() + "log_file_" + std::to_string(getpid());
    ASSERT_TRUE(file.create(path.c_str()).ok());
  }
  void TearDown() override {
    file.close();
    unlink(path.c_str());
  }
  std::string content() const {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  FileResult append(const std::string& text) { return file.append(text.data(), text.size()); }

  std::string path;
  LogFile file;
};

TEST_F(LogFileTest, AppendsAtItsEndAndPatchesInside) {
  EXPECT_TRUE(append("abcdef").ok());
  EXPECT_TRUE(file.patch(1, "BC", 2).ok());
  EXPECT_EQ(file.end(), 6);
  EXPECT_TRUE(append("gh").ok());
  EXPECT_TRUE(file.patch(10, "kl", 2).ok());  // behind the end: zeros between
  EXPECT_TRUE(file.patch(20, "", 0).ok());
  EXPECT_EQ(file.end(), 12);
  EXPECT_TRUE(file.append_zeros(3).ok());
  EXPECT_TRUE(file.patch_zeros(4, 2).ok());
  EXPECT_EQ(content(), std::string("aBCd\0\0gh\0\0kl\0\0\0", 15));
  EXPECT_TRUE(file.cut(4).ok());
  EXPECT_TRUE(append("!").ok());
  EXPECT_EQ(content(), "aBCd!");
}

TEST_F(LogFileTest, FindsItsEndAgain) {
  EXPECT_TRUE(append("abcdef").ok());
  ASSERT_EQ(truncate(path.c_str(), 2), 0);
  EXPECT_TRUE(file.is_open());
  EXPECT_TRUE(append("x").ok());
  file.close();
  EXPECT_FALSE(file.is_open());
  EXPECT_TRUE(file.exists("whatever: it knows its place"));
  EXPECT_TRUE(file.reopen("whatever").ok());
  EXPECT_TRUE(append("y").ok());
  EXPECT_EQ(content(), "abxy");
  unlink(path.c_str());
  EXPECT_FALSE(file.exists("gone"));
}

// The application has closed the descriptor and opened a file of its own, which gets the number.
TEST_F(LogFileTest, LeavesADescriptorThatIsNoLongerItsOwnAndGoesOnWithItsFile) {
  const std::string other = path + "_other";
  struct stat log {};
  ASSERT_EQ(stat(path.c_str(), &log), 0);
  int number = 100;
  for (struct stat each{}; fstat(number, &each) != 0 || each.st_ino != log.st_ino; ++number) ASSERT_LT(number, 1024);
  const int fd = open(other.c_str(), O_CREAT | O_RDWR, 0600);
  ASSERT_EQ(dup2(fd, number), number);
  EXPECT_TRUE(file.is_open());
  EXPECT_TRUE(append("x").ok());
  EXPECT_EQ(content(), "x");
  close_range(static_cast<unsigned>(number) + 1, 1023, 0);  // where it is now
  EXPECT_TRUE(append("y").ok());
  EXPECT_EQ(content(), "xy");
  file.close();
  EXPECT_FALSE(file.is_open());
  EXPECT_NE(fcntl(number, F_GETFD), -1) << "the application's descriptor was closed";
  struct stat mine {};
  EXPECT_EQ(fstat(fd, &mine), 0);
  EXPECT_EQ(mine.st_size, 0);
  close(fd);
  close(number);
  unlink(other.c_str());
}

TEST_F(LogFileTest, CutsOffWhatDoesNotFit) {
  struct rlimit before {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const struct rlimit limit { 10, before.rlim_max };
  EXPECT_TRUE(append("ab").ok());
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const FileResult whole = file.append_items("cccdddeeefff", 3, 4);
  const int64_t end = file.end();
  const FileResult torn = append("0123456789");
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(whole.error(), EFBIG);
  EXPECT_EQ(end, 2 + 6);  // 8 bytes went in, of which two items are whole
  EXPECT_EQ(torn.error(), EFBIG);
  EXPECT_EQ(content(), "abcccddd01");
  EXPECT_EQ(file.end(), 10);
  EXPECT_TRUE(append("x").ok());
  EXPECT_EQ(content(), "abcccddd01x");
}

// Whatever a slot held before, also a damaged block's depth.
TEST(RecordBuffer, HasZerosBehindEachTrace) {
  RecordBuffer buffer{};
  buffer.allocate(2 * sizeof(OpRecord));
  uint32_t words[kMaxTrace];
  std::fill(std::begin(words), std::end(words), 0xABCDEF01);
  for (int depth : {8, 64, 8, 0, 63, 64, 1, 2, 9, 8, 0}) {
    for (buffer.clear(); !buffer.full();) {
      OpRecord* record = buffer.take_slot();
      set_record_trace(words, depth, record);
      EXPECT_EQ(record->stack_depth, depth);
      EXPECT_EQ(std::count(record->trace, record->trace + kMaxTrace, words[0]), depth);
      EXPECT_EQ(std::count(record->trace + depth, record->trace + kMaxTrace, 0), kMaxTrace - depth);
      if (depth == kMaxTrace) record->stack_depth = 200;
    }
  }
}

}  // namespace
}  // namespace quarl
