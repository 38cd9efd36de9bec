// SPDX-License-Identifier: Apache-2.0
#include "config/items.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <string>

#include "config/signal_names.h"

namespace quarl {
namespace {

// Items over settings of their own, as the library is loaded with them.
struct Fresh {
  Settings settings;
  Items items{settings};

  Applied apply(const std::string& line) { return items.apply(line.c_str()); }
  std::pair<uint32_t, uint32_t> flags() const { return {settings.cfg_flags, settings.slop_flags}; }
};

TEST(Items, SwitchesSetAndClearTheirBit) {
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
    SCOPED_TRACE(c.key);
    Fresh fresh;
    const std::string key(c.key);
    EXPECT_EQ(fresh.apply(key + "=1").outcome, Applied::kSet);
    EXPECT_EQ(fresh.flags(), std::make_pair(c.cfg, c.slop));
    if (key == "QUARL_PROF") fresh.settings.cfg_flags |= kAll;  // without it that one stays on
    fresh.items.set(*find_item(c.key), "0");                    // as if it could be set again
    EXPECT_EQ(fresh.settings.cfg_flags | kAll, uint32_t{kAll});
    EXPECT_EQ(fresh.settings.slop_flags, 0U);
  }
}

TEST(Items, NumbersAndTheirLimits) {
  const struct {
    const char* line;
    int64_t value;
  } cases[] = {
      {"QUARL_HEAD_STACKDEPTH=64", 64},    {"QUARL_HEAD_STACKDEPTH=65", 8},    {"QUARL_HEAD_STACKDEPTH=1", 8},
      {"QUARL_HEAD_STACKDEPTH=2", 2},      {"QUARL_HEAD_STACKDEPTH=+9x", 9},   {"QUARL_HEAD_STACKDEPTH=x", 8},
      {"QUARL_MAPS_SIZE=1", 32},           {"QUARL_MAPS_SIZE=2", 2},           {"QUARL_MAPS_SIZE=-4", 32},
      {"QUARL_TRACE_BUFSIZE=1680", 28000}, {"QUARL_TRACE_BUFSIZE=2800", 2800}, {"QUARL_TRACE_BUFSIZE=279", 28000},
      {"QUARL_TRACE_BUFSIZE=5000", 4760},  {"QUARL_TRACE_BUFSIZE=0", 28000},   {"QUARL_TRACE_BUFSIZE=x", 28000}};
  for (const auto& c : cases) {
    Fresh fresh;
    EXPECT_EQ(fresh.apply(c.line).outcome, Applied::kSet);
    const int64_t value = strstr(c.line, "DEPTH")  ? fresh.settings.stack_depth
                          : strstr(c.line, "MAPS") ? fresh.settings.maps_size_kb
                                                   : static_cast<int64_t>(fresh.settings.trace_buf_size);
    EXPECT_EQ(value, c.value) << c.line;
  }
}

// The check on the desk complains by the rows' ranges.
TEST(Items, RangesEndWhereTheSettersTakeNumbersOtherwise) {
  const auto set_to = [](const char* key, uint32_t number) {
    Fresh fresh;
    fresh.items.set(*find_item(key), std::to_string(number).c_str());
    return fresh.settings;
  };
  const ItemRange depth = find_item("QUARL_HEAD_STACKDEPTH")->range;
  EXPECT_EQ(set_to("QUARL_HEAD_STACKDEPTH", depth.last).stack_depth, static_cast<int>(depth.last));
  EXPECT_EQ(set_to("QUARL_HEAD_STACKDEPTH", depth.last + 1).cfg_flags, 0U);
  const ItemRange maps = find_item("QUARL_MAPS_SIZE")->range;
  EXPECT_EQ(set_to("QUARL_MAPS_SIZE", maps.first).maps_size_kb, static_cast<int>(maps.first));
  EXPECT_EQ(set_to("QUARL_MAPS_SIZE", maps.first - 1).maps_size_kb, kDefaultMapsKib);
  const ItemRange buffer = find_item("QUARL_TRACE_BUFSIZE")->range;
  EXPECT_EQ(set_to("QUARL_TRACE_BUFSIZE", buffer.first).trace_buf_size, kRecordSize);
  EXPECT_EQ(set_to("QUARL_TRACE_BUFSIZE", buffer.first - 1).trace_buf_size, kDefaultBufferSize);
  EXPECT_EQ(set_to("QUARL_TRACE_BUFSIZE", buffer.last).trace_buf_size, kMaxRecords * kRecordSize);
  EXPECT_EQ(set_to("QUARL_TRACE_BUFSIZE", buffer.last + 1).trace_buf_size, (kMaxRecords + 1) * kRecordSize);
}

TEST(Items, EffectsSayWhatElseIsToBeDone) {
  const std::string timed = "QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2";
  const struct {
    std::string before;
    const char* line;
    Effect::Kind kind;
    int number;
    const char* text;
  } cases[] = {
      {"", "QUARL_LOG_FILENAME=1", Effect::kNameLogs, 0, ""},
      {"", "QUARL_LOG_FILENAME=123456789012345", Effect::kNameLogs, 0, "123456789012345"},
      {"", "QUARL_SIG=SIGUSR2", Effect::kHandleDumpSignal, 12, ""},
      {"", "QUARL_SIG=10", Effect::kHandleDumpSignal, 10, ""},
      {"", "QUARL_SIG=SIGHUP", Effect::kOfferDumpSignal, 10, ""},
      {"", "QUARL_SIG=1", Effect::kOfferDumpSignal, 10, ""},
      {"", "QUARL_TIMER_SIG=12", Effect::kSetTimerSignal, 12, ""},
      {"", "QUARL_TIMER_SIG=0", Effect::kSetTimerSignal, 14, ""},
      {"", "QUARL_PROF=0", Effect::kMakeStatistics, 0, ""},
      {"QUARL_ALL=1", "QUARL_THREAD=1", Effect::kRefuseThreads, 0, ""},
      {"", "QUARL_THREAD=0", Effect::kMakeThreadTable, 0, ""},
      {"", "QUARL_MMAP=1", Effect::kTraceMappings, 1, ""},
      {"", "QUARL_RANDOM_FAIL=1", Effect::kSeedRandom, 0, ""},
      {"QUARL_RANDOM_FAIL=1", "QUARL_RANDOM_FAIL=1", Effect::kNone, 0, ""},
      {timed, "QUARL_TIME_INTERVAL=5", Effect::kStartTimer, 5, ""},
      {timed, "QUARL_TIME_INTERVAL=0", Effect::kNone, 0, ""},
      {"QUARL_HEAD_TIME=2", "QUARL_TIME_INTERVAL=5", Effect::kNone, 0, ""},
      {timed, "QUARL_SNAP_INTERVAL=7", Effect::kScheduleSnapshots, 7, ""},
      {"", "QUARL_SNAP_INTERVAL=7", Effect::kRefuseSnapshots, 0, ""},
      {"", "QUARL_SNAP_INTERVAL=0", Effect::kNone, 0, ""},
      {"", "QUARL_SLOPOVER_TIMER=1", Effect::kHandleCheckSignal, SIGALRM, ""},
      {"", "QUARL_SLOPOVER_TIMER=0", Effect::kNone, 0, ""},
      {"", "QUARL_SLOPOVER_USER=33", Effect::kHandleCheckSignal, 33, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before + " then " + c.line);
    Fresh fresh;
    for (size_t at = 0; at < c.before.size(); at = c.before.find(' ', at + 1) + 1) {
      fresh.apply(c.before.substr(at, c.before.find(' ', at) - at));
      if (c.before.find(' ', at) == std::string::npos) break;
    }
    const Applied applied = fresh.apply(c.line);
    EXPECT_EQ(applied.outcome, Applied::kSet);
    EXPECT_EQ(applied.effect.kind, c.kind);
    EXPECT_EQ(applied.effect.number, c.number);
    EXPECT_STREQ(applied.effect.text, c.text);
  }
}

TEST(Items, ItemsThatReadOthers) {
  Fresh fresh;
  fresh.apply("QUARL_HEAD_TIME=2");
  fresh.apply("QUARL_HEAD_TIME=1");
  EXPECT_EQ(fresh.settings.timer_clock_on, 1);
  EXPECT_EQ(fresh.settings.cfg_flags, 0x4000U);
  fresh.apply("QUARL_TIME_INTERVAL=0");  // nothing that it needs is on
  EXPECT_EQ(fresh.settings.timer_clock_on, 1);
  fresh.apply("QUARL_PROF=1");
  fresh.apply("QUARL_PROF=0");  // cleared only while everything is on
  EXPECT_EQ(fresh.settings.cfg_flags, 0x4001U);
  fresh.apply("QUARL_MEM_CHECK_IN_HOOK=1");
  fresh.apply("QUARL_SLOPOVER_API=1");
  EXPECT_EQ(fresh.settings.slop_flags, 0x20004U);
  fresh.apply("QUARL_SNAP_INTERVAL=3");
  EXPECT_EQ(fresh.settings.snap_interval, 3);
  fresh.apply("QUARL_SNAP_INTERVAL=0");
  EXPECT_EQ(fresh.settings.snap_interval, 0);
}

TEST(Items, DefaultsFollowTheTable) {
  Fresh fresh;
  fresh.apply("QUARL_HEAD_TID=0");
  Effect effect;
  for (const ItemRow& row : kItemRows)
    EXPECT_EQ(fresh.items.apply_default(row, &effect), row.default_on && row.key != std::string("QUARL_HEAD_TID"));
  EXPECT_EQ(fresh.settings.cfg_flags, 0x1005D001U) << std::hex << fresh.settings.cfg_flags;
  EXPECT_EQ(fresh.settings.slop_flags, 6U);
  EXPECT_EQ(fresh.apply("QUARL_SLOPOVER=0").outcome, Applied::kKept);  // set by then, and only once
  EXPECT_EQ(fresh.apply("QUARL_HEAD_TID=1").outcome, Applied::kSet);
  EXPECT_EQ(fresh.settings.cfg_flags, 0x1005F001U);
  EXPECT_EQ(fresh.apply("QUARL_HEAD=1").outcome, Applied::kUnknown);
  EXPECT_EQ(fresh.apply("QUARL_HEAD_TID").outcome, Applied::kBadLine);
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
