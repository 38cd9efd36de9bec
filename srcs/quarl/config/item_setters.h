// SPDX-License-Identifier: Apache-2.0
// What the value of an item does to the cfg. Every text maps to some state, none is refused; a text has 1 to
// kMaxValue characters. On/off items look at the first character only: 1 is on, anything else off. Numbers are read
// by leading_number().
#pragma once

#include "config/effect.h"
#include "state/settings.h"

namespace quarl {

struct ItemRow;

// Sets the item of this row and returns what else is to be done.
using ItemSetter = Effect (*)(Settings& cfg, const ItemRow& row, const char* value);

Effect set_bit(Settings& cfg, const ItemRow& row, const char* value);  // on/off and nothing else
Effect set_log_filename(Settings& cfg, const ItemRow& row, const char* value);
Effect set_dump_signal(Settings& cfg, const ItemRow& row, const char* value);
Effect set_prof(Settings& cfg, const ItemRow& row, const char* value);
Effect set_thread(Settings& cfg, const ItemRow& row, const char* value);
Effect set_mmap(Settings& cfg, const ItemRow& row, const char* value);
Effect set_random_fail(Settings& cfg, const ItemRow& row, const char* value);
Effect set_head_time(Settings& cfg, const ItemRow& row, const char* value);
Effect set_timer_signal(Settings& cfg, const ItemRow& row, const char* value);
Effect set_time_interval(Settings& cfg, const ItemRow& row, const char* value);
Effect set_snap_interval(Settings& cfg, const ItemRow& row, const char* value);
Effect set_snap_detail(Settings& cfg, const ItemRow& row, const char* value);
Effect set_stackdepth(Settings& cfg, const ItemRow& row, const char* value);
Effect set_maps_size(Settings& cfg, const ItemRow& row, const char* value);
Effect set_trace_bufsize(Settings& cfg, const ItemRow& row, const char* value);
Effect set_slopover_timer(Settings& cfg, const ItemRow& row, const char* value);
Effect set_slopover_api(Settings& cfg, const ItemRow& row, const char* value);
Effect set_slopover_user(Settings& cfg, const ItemRow& row, const char* value);

// The signals that items stand for when their value names none.
inline constexpr int kDefaultDumpSignal = 10;   // SIGUSR1
inline constexpr int kDefaultTimerSignal = 14;  // SIGALRM
inline constexpr int kCheckTimerSignal = 14;    // SIGALRM, of QUARL_SLOPOVER_TIMER

inline constexpr uint32_t kRecordSize = 280;  // bytes of a record, of which a record buffer holds whole ones
inline constexpr uint32_t kDefaultBufferSize = 100 * kRecordSize;
inline constexpr int kMaxDepth = 64;  // return addresses

}  // namespace quarl
