// SPDX-License-Identifier: Apache-2.0
#include "config/item_setters.h"

#include <cstring>

#include "config/item_rows.h"
#include "config/signal_names.h"

namespace quarl {
namespace {

bool is_on(const char* value) {
  return value[0] == '1';
}

void put(Settings& cfg, const ItemRow& row, bool on) {
  put_flag(cfg.*row.bit.word, row.bit.mask, on);
}

Effect with_number(Effect::Kind kind, int number) {
  return {kind, number, {}};
}

}  // namespace

Effect set_bit(Settings& cfg, const ItemRow& row, const char* value) {
  put(cfg, row, is_on(value));
  return {};
}

Effect set_log_filename(Settings&, const ItemRow&, const char* value) {
  Effect effect{Effect::kNameLogs};
  if (strcmp(value, "1") != 0) strncpy(effect.text, value, sizeof effect.text - 1);
  return effect;
}

Effect set_dump_signal(Settings& cfg, const ItemRow&, const char* value) {
  constexpr int kUnnamed = 0;
  const int named = signal_of_value(value, kUnnamed);
  cfg.dump_signal = named == kUnnamed ? kDefaultDumpSignal : named;
  if (named == kUnnamed) return with_number(Effect::kOfferDumpSignal, kDefaultDumpSignal);
  return with_number(Effect::kHandleDumpSignal, named);
}

Effect set_prof(Settings& cfg, const ItemRow& row, const char* value) {
  if (is_on(value)) {
    put(cfg, row, true);
  } else if (Flags(cfg).prof()) {
    put(cfg, row, false);
  }
  return {Effect::kMakeStatistics};
}

Effect set_thread(Settings& cfg, const ItemRow& row, const char* value) {
  const Flags flags(cfg);
  if (flags.set(kAll) && !flags.prof()) return {Effect::kRefuseThreads};
  put(cfg, row, is_on(value));
  return {Effect::kMakeThreadTable};
}

Effect set_mmap(Settings&, const ItemRow&, const char* value) {
  return with_number(Effect::kTraceMappings, is_on(value) ? 1 : 0);
}

Effect set_random_fail(Settings& cfg, const ItemRow& row, const char* value) {
  put(cfg, row, is_on(value));
  if (!is_on(value) || cfg.random_seeded != 0) return {};
  cfg.random_seeded = 1;
  return {Effect::kSeedRandom};
}

Effect set_head_time(Settings& cfg, const ItemRow& row, const char* value) {
  put(cfg, row, value[0] == '1' || value[0] == '2');
  if (value[0] == '2') cfg.timer_clock_on = 1;
  return {};
}

Effect set_timer_signal(Settings&, const ItemRow&, const char* value) {
  return with_number(Effect::kSetTimerSignal, signal_of_value(value, kDefaultTimerSignal));
}

Effect set_time_interval(Settings& cfg, const ItemRow&, const char* value) {
  if (!Flags(cfg).in_force(kHeadTime) || cfg.timer_clock_on == 0) return {};
  const int seconds = leading_number(value);
  if (seconds != 0) return with_number(Effect::kStartTimer, seconds);
  cfg.timer_clock_on = 0;
  return {};
}

Effect set_snap_interval(Settings& cfg, const ItemRow&, const char* value) {
  const int seconds = leading_number(value);
  const bool possible = cfg.timer_clock_on == 1;
  cfg.snap_interval = possible ? seconds : 0;
  cfg.next_snap_time = 0;
  if (cfg.snap_interval != 0) return with_number(Effect::kScheduleSnapshots, seconds);
  return {seconds > 0 ? Effect::kRefuseSnapshots : Effect::kNone};
}

Effect set_snap_detail(Settings& cfg, const ItemRow&, const char* value) {
  cfg.snap_detail = is_on(value) ? 1 : 0;
  return {};
}

Effect set_stackdepth(Settings& cfg, const ItemRow& row, const char* value) {
  const int depth = leading_number(value);
  const bool usable = depth >= 1 && depth <= kMaxDepth;
  if (usable) cfg.stack_depth = static_cast<int16_t>(depth == 1 ? kDefaultDepth : depth);
  put(cfg, row, usable);
  return {};
}

Effect set_maps_size(Settings& cfg, const ItemRow&, const char* value) {
  const int size = leading_number(value);
  if (size > 1) cfg.maps_size_kb = size;
  return {};
}

Effect set_trace_bufsize(Settings& cfg, const ItemRow&, const char* value) {
  const uint32_t records = static_cast<uint32_t>(leading_number(value)) / kRecordSize;
  const bool default_size = value[0] == '0' || value[0] == '1' || records == 0;
  cfg.trace_buf_size = default_size ? kDefaultBufferSize : records * kRecordSize;
  return {};
}

Effect set_slopover_timer(Settings& cfg, const ItemRow& row, const char* value) {
  put(cfg, row, is_on(value));
  return is_on(value) ? with_number(Effect::kHandleCheckSignal, kCheckTimerSignal) : Effect{};
}

// Turns the trigger of quarl_check_mem on and off; the other bit is only kept.
Effect set_slopover_api(Settings& cfg, const ItemRow& row, const char* value) {
  put(cfg, row, is_on(value));
  if (Flags(cfg).set(kMemCheckInHook)) put_flag(cfg.slop_flags, kSlopApiInHook, is_on(value));
  return {};
}

Effect set_slopover_user(Settings& cfg, const ItemRow& row, const char* value) {
  put(cfg, row, true);
  cfg.check_signal = leading_number(value);
  return with_number(Effect::kHandleCheckSignal, cfg.check_signal);
}

}  // namespace quarl
