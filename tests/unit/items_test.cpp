#include "config/items.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include "config/signal_names.h"
#include "config/state/config_state.h"
#include "logs/statistics.h"

namespace quarl {
namespace {

// Every test starts from the state that the library is loaded with.
class ItemsTest : public testing::Test {
 protected:
  void SetUp() override {
    const ScopedLock lock;
    for (Item& item : items.rows) item.is_set = 0;
    cfg_flags = slop_flags = 0;
    stack_depth = 8;
    maps_size_kb = 32;
    trace_buf_size = 0;
    snap_detail = QR_TRACE_MMAP = timer_clock_on = 0;
    qr_sig_num = 14;
  }
  int apply(const char* line) {
    const ScopedLock lock;
    return apply_line(line);
  }
};

TEST_F(ItemsTest, SwitchesSetAndClearTheirBit) {
  const struct {
    const char* key;
    uint32_t cfg, slop;
  } cases[] = {{"QUARL_ALL", 0x10000000, 0},           {"QUARL_OUTPUT_LOG", 0x20000000, 0},
               {"QUARL_DEMO_THREAD", 0x20, 0},         {"QUARL_PROF", 0x1, 0},
               {"QUARL_HEAP_LIMIT", 0x4, 0},           {"QUARL_STACK_LIMIT", 0x8, 0},
               {"QUARL_RANDOM_FAIL", 0x10, 0},         {"QUARL_RESET", 0x40, 0},
               {"QUARL_MEM_HEAD", 0x1000, 0},          {"QUARL_HEAD_TID", 0x2000, 0},
               {"QUARL_HEAD_TIME", 0x4000, 0},         {"QUARL_HEAD_STACKDEPTH", 0x8000, 0},
               {"QUARL_SLOPOVER", 0x10000, 0},         {"QUARL_MEM_CHECK_IN_HOOK", 0x20000, 0},
               {"QUARL_LOG_OVERLAY", 0x80000, 0},      {"QUARL_RECORD_LOG_AT_FREE", 0x40000, 0},
               {"QUARL_MEM_CHECK", 0x200000, 0},       {"QUARL_PRINT_PROFINFO", 0x400000, 0},
               {"QUARL_TIMER", 0x1000000, 0},          {"QUARL_THREAD", 0x2, 0},
               {"QUARL_SLOPOVER_MALLOC", 0, 1U << 28}, {"QUARL_SLOPOVER_FREE", 0, 1U << 29},
               {"QUARL_SLOPOVER_THREAD", 0, 1U << 30}, {"QUARL_SLOPOVER_EXIT", 0, 2},
               {"QUARL_SLOPOVER_API", 0, 4},           {"QUARL_SLOPOVER_TIMER", 0, 1}};
  for (const auto& c : cases) {
    SetUp();
    SCOPED_TRACE(c.key);
    const std::string key(c.key);
    EXPECT_EQ(apply((key + "=1").c_str()), 0);
    EXPECT_EQ(std::make_pair(cfg_flags, slop_flags), std::make_pair(c.cfg, c.slop));
    for (Item& item : items.rows) item.is_set = 0;
    if (key == "QUARL_PROF") set_flag(cfg_flags, kAll);  // without it that one stays on
    EXPECT_EQ(apply((key + "=0").c_str()), 0);
    EXPECT_EQ(cfg_flags | kAll, uint32_t{kAll});
    EXPECT_EQ(slop_flags, 0U);
  }
}

TEST_F(ItemsTest, NumbersAndTheirLimits) {
  const struct {
    const char* line;
    int64_t value;
  } cases[] = {
      {"QUARL_HEAD_STACKDEPTH=64", 64},    {"QUARL_HEAD_STACKDEPTH=65", 8},    {"QUARL_HEAD_STACKDEPTH=1", 8},
      {"QUARL_HEAD_STACKDEPTH=2", 2},      {"QUARL_HEAD_STACKDEPTH=+9x", 9},   {"QUARL_HEAD_STACKDEPTH=x", 8},
      {"QUARL_MAPS_SIZE=1", 32},           {"QUARL_MAPS_SIZE=2", 2},           {"QUARL_MAPS_SIZE=-4", 32},
      {"QUARL_TRACE_BUFSIZE=1680", 28000}, {"QUARL_TRACE_BUFSIZE=2800", 2800}, {"QUARL_TRACE_BUFSIZE=279", 28000},
      {"QUARL_TRACE_BUFSIZE=5000", 4760},  {"QUARL_TRACE_BUFSIZE=0", 28000},   {"QUARL_TRACE_BUFSIZE=x", 28000},
      {"QUARL_TIMER_SIG=SIGUSR2", 12},     {"QUARL_TIMER_SIG=12", 12},         {"QUARL_TIMER_SIG=0", 14}};
  for (const auto& c : cases) {
    SetUp();
    EXPECT_EQ(apply(c.line), 0);
    const int64_t value = strstr(c.line, "DEPTH")     ? stack_depth
                          : strstr(c.line, "MAPS")    ? maps_size_kb
                          : strstr(c.line, "BUFSIZE") ? static_cast<int64_t>(trace_buf_size)
                                                      : qr_sig_num;
    EXPECT_EQ(value, c.value) << c.line;
  }
}

TEST_F(ItemsTest, ItemsThatReadOthers) {
  apply("QUARL_HEAD_TIME=2");
  apply("QUARL_HEAD_TIME=1");
  EXPECT_EQ(timer_clock_on, 1);
  EXPECT_EQ(cfg_flags, 0x4000U);
  apply("QUARL_TIME_INTERVAL=0");  // nothing that it needs is on
  EXPECT_EQ(timer_clock_on, 1);
  apply("QUARL_PROF=1");
  apply("QUARL_PROF=0");  // cleared only while everything is on
  EXPECT_EQ(cfg_flags, 0x4001U);
  apply("QUARL_MEM_CHECK_IN_HOOK=1");
  apply("QUARL_SLOPOVER_API=1");
  EXPECT_EQ(slop_flags, 0x20004U);
  apply("QUARL_MMAP=1");
  EXPECT_EQ(QR_TRACE_MMAP, 1);
  EXPECT_EQ(prof_info->trace_mmap, 1U);
}

TEST_F(ItemsTest, DefaultsFollowTheTable) {
  {
    const ScopedLock lock;
    apply_line("QUARL_HEAD_TID=0");
    apply_defaults();
  }
  EXPECT_EQ(cfg_flags, 0x1005D001U) << std::hex << cfg_flags;
  EXPECT_EQ(slop_flags, 6U);
  EXPECT_EQ(apply("QUARL_SLOPOVER=0"), 0);  // set by then, and only once
  EXPECT_EQ(apply("QUARL_HEAD_TID=1"), 0);
  EXPECT_EQ(cfg_flags, 0x1005F001U);
}

TEST(SignalNames, NamesNumbersAndDefaults) {
  const struct {
    const char* value;
    int number;
  } cases[] = {{"SIGUSR1", 10}, {"SIGSYS", 31}, {"SIG32", 32},    {"SIG128", 128}, {"SIG129", 99},
               {"SIG31", 99},   {"SIGHUP", 99}, {"1", 99},        {"0", 99},       {"SIGINVALID", 99},
               {"sigusr1", 99}, {"SIG16", 99},  {"16", 16},       {"  12 x", 12},  {"SIGUSR2 more", 12},
               {"7up", 7},      {"SIG032", 99}, {"SIGSTKFLT", 99}};
  for (const auto& c : cases) EXPECT_EQ(signal_of_value(c.value, 99), c.number) << c.value;
}

}  // namespace
}  // namespace quarl
