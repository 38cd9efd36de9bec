// SPDX-License-Identifier: Apache-2.0
// The 36 configuration items, a row each: the one table behind the library, the `quarl` tool and the reference page.
// Pure: the tool on the desk reads and applies items by the same rows.
#pragma once

#include <cstdint>

#include "config/item_setters.h"

namespace quarl {

// How the text behind the "=" is read.
enum class ItemValue : uint8_t {
  kSwitch,        // by its first character: 1 is on
  kLevel,         // by its first character: 0, 1 or 2
  kNumber,        // decimal digits up to the first other character
  kSignal,        // a name or a number; 0, 1 and what is neither stand for a default
  kSignalNumber,  // a number that is taken as it is
  kText,
};

// The bit of the settings that is on while the item is; no word for an item without one.
struct ItemBit {
  uint32_t Settings::*word = nullptr;
  uint32_t mask = 0;
};
constexpr ItemBit cfg_bit(ConfigBit mask) {
  return {&Settings::cfg_flags, mask};
}
constexpr ItemBit slop_bit(SlopBit mask) {
  return {&Settings::slop_flags, mask};
}

// Numbers that are taken as written, [first, last]; what others are taken for, the setter says.
struct ItemRange {
  uint32_t first;
  uint32_t last;
};
inline constexpr uint32_t kLastSignal = 64;
inline constexpr uint32_t kMaxNumber = 999999999;
inline constexpr uint32_t kMaxRecords = 32767;  // that a record buffer can count

struct ItemRow {
  const char* key;
  ItemBit bit{};
  ItemValue value = ItemValue::kSwitch;
  ItemSetter set = set_bit;
  bool default_on = false;  // applied with "1" when nothing else set it
  bool resettable = false;  // takes every value that reaches it; otherwise the first one stays
  ItemRange range{0, 1};
  const char* unit = "";
  const char* values = "0|1";       // what may stand behind the "="
  const char* default_value = "0";  // what is in force when nothing sets it
  const char* effect;
  const char* depends = "";  // keys, blank-separated, that must be on (or set earlier) for it to act
};

// In the order in which defaults are applied.
// clang-format off
inline constexpr ItemRow kItemRows[] = {
    {.key = "QUARL_ALL",
     .bit = cfg_bit(kAll),
     .default_on = true,
     .resettable = true,
     .default_value = "1",
     .effect = "Master switch: with 0 no other item is in force."},
    {.key = "QUARL_OUTPUT_LOG",
     .bit = cfg_bit(kOutputLog),
     .resettable = true,
     .effect = "Write a record of every operation to the record log.",
     .depends = "QUARL_ALL"},
    {.key = "QUARL_LOG_FILENAME",
     .value = ItemValue::kText,
     .set = set_log_filename,
     .default_on = true,
     .values = "1|PREFIX",
     .default_value = "1",
     .effect = "Log file names: 1 gives NAME_PID_quarlAll.log, any other text PREFIX_NAME_PID_quarlAll.log for the record log."},
    {.key = "QUARL_DEMO_THREAD",
     .bit = cfg_bit(kDemoThread),
     .effect = "Start the agent, a TCP server that takes configuration lines. Whoever reaches its port controls the process."},
    {.key = "QUARL_SIG",
     .value = ItemValue::kSignal,
     .set = set_dump_signal,
     .default_on = true,
     .range = {2, kLastSignal},
     .values = "SIGNAL|NUMBER",
     .default_value = "SIGUSR1",
     .effect = "Signal that writes the logs and requests a reload of the configuration file; 0, 1 or an unknown name is "
     "SIGUSR1."},
    {.key = "QUARL_PROF",
     .bit = cfg_bit(kProf),
     .set = set_prof,
     .default_on = true,
     .resettable = true,
     .default_value = "1",
     .effect = "Usage statistics: calls, failures and bytes per operation.",
     .depends = "QUARL_ALL"},
    {.key = "QUARL_THREAD",
     .bit = cfg_bit(kThread),
     .set = set_thread,
     .resettable = true,
     .effect = "The same statistics per thread, for the first 200 threads.",
     .depends = "QUARL_ALL QUARL_PROF"},
    {.key = "QUARL_MMAP",
     .set = set_mmap,
     .default_on = true,
     .resettable = true,
     .default_value = "1",
     .effect = "Keep a record of every live mapping.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD"},
    {.key = "QUARL_HEAP_LIMIT",
     .bit = cfg_bit(kHeapLimit),
     .resettable = true,
     .effect = "Stop a thread whose request would take the held bytes past heap_limit.",
     .depends = "QUARL_ALL QUARL_PROF"},
    {.key = "QUARL_STACK_LIMIT",
     .bit = cfg_bit(kStackLimit),
     .resettable = true,
     .effect = "Stop a thread whose request plus stack_use is greater than stack_limit.",
     .depends = "QUARL_ALL QUARL_PROF"},
    {.key = "QUARL_RANDOM_FAIL",
     .bit = cfg_bit(kRandomFail),
     .set = set_random_fail,
     .resettable = true,
     .effect = "Make about one allocation in seven fail, seeded with the process id.",
     .depends = "QUARL_ALL QUARL_PROF"},
    {.key = "QUARL_RESET",
     .bit = cfg_bit(kReset),
     .resettable = true,
     .effect = "Clear the statistics once, at the next packet that the agent accepts."},
    {.key = "QUARL_MEM_HEAD",
     .bit = cfg_bit(kMemHead),
     .default_on = true,
     .resettable = true,
     .default_value = "1",
     .effect = "Give every block a header and keep the list of live blocks.",
     .depends = "QUARL_ALL"},
    {.key = "QUARL_HEAD_TID",
     .bit = cfg_bit(kHeadTid),
     .default_on = true,
     .resettable = true,
     .default_value = "1",
     .effect = "Headers and records hold the thread id.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD"},
    {.key = "QUARL_HEAD_TIME",
     .bit = cfg_bit(kHeadTime),
     .value = ItemValue::kLevel,
     .set = set_head_time,
     .default_on = true,
     .resettable = true,
     .range = {0, 2},
     .values = "0|1|2",
     .default_value = "1",
     .effect = "Headers and records hold time and sequence number; 2 also asks for the interval timer that keeps the time.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD"},
    {.key = "QUARL_TIMER_SIG",
     .value = ItemValue::kSignal,
     .set = set_timer_signal,
     .default_on = true,
     .range = {2, kLastSignal},
     .values = "SIGNAL|NUMBER",
     .default_value = "SIGALRM",
     .effect = "Signal of the interval timer; 0, 1 or an unknown name is SIGALRM."},
    {.key = "QUARL_TIME_INTERVAL",
     .value = ItemValue::kNumber,
     .set = set_time_interval,
     .default_on = true,
     .range = {0, kMaxNumber},
     .unit = "s",
     .values = "SECONDS",
     .default_value = "1",
     .effect = "Period of the interval timer; 0 starts none. Only with QUARL_HEAD_TIME=2.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD QUARL_HEAD_TIME QUARL_TIMER_SIG"},
    {.key = "QUARL_SNAP_INTERVAL",
     .value = ItemValue::kNumber,
     .set = set_snap_interval,
     .resettable = true,
     .range = {0, kMaxNumber},
     .unit = "s",
     .values = "SECONDS",
     .effect = "Take an automatic snapshot every so many seconds; 0 takes none. Without the timer (QUARL_HEAD_TIME=2) the "
     "process ends.",
     .depends = "QUARL_HEAD_TIME QUARL_TIME_INTERVAL"},
    {.key = "QUARL_SNAP_DETAIL",
     .set = set_snap_detail,
     .resettable = true,
     .effect = "Automatic snapshots hold a record of every live block and mapping.",
     .depends = "QUARL_SNAP_INTERVAL"},
    {.key = "QUARL_HEAD_STACKDEPTH",
     .bit = cfg_bit(kHeadStackdepth),
     .value = ItemValue::kNumber,
     .set = set_stackdepth,
     .default_on = true,
     .resettable = true,
     .range = {0, kMaxDepth},
     .unit = "addresses",
     .values = "0|1|2..64",
     .default_value = "8",
     .effect = "Headers and records hold a call trace of at most so many return addresses; 1 is 8, 0 or anything else none.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD"},
    {.key = "QUARL_MAPS_SIZE",
     .value = ItemValue::kNumber,
     .set = set_maps_size,
     .default_on = true,
     .range = {2, 1024 * 1024},
     .unit = "KiB",
     .values = "KIB",
     .default_value = "32",
     .effect = "KiB that each log file reserves for the copy of the process's maps; 0 and 1 leave 32."},
    {.key = "QUARL_TRACE_BUFSIZE",
     .value = ItemValue::kNumber,
     .set = set_trace_bufsize,
     .default_on = true,
     .range = {kRecordSize, (kMaxRecords + 1) * kRecordSize - 1},
     .unit = "bytes",
     .values = "BYTES",
     .default_value = "28000",
     .effect = "Size of each of the two record buffers, cut to whole records of 280 bytes; a value that begins with 0 or 1, or "
     "is below 280, gives 28000."},
    {.key = "QUARL_RECORD_LOG_AT_FREE",
     .bit = cfg_bit(kRecordLogAtFree),
     .default_on = true,
     .resettable = true,
     .default_value = "1",
     .effect = "Accepted for older files; has no effect."},
    {.key = "QUARL_SLOPOVER",
     .bit = cfg_bit(kSlopover),
     .default_on = true,
     .default_value = "1",
     .effect = "Put a guard behind every block and check blocks on release.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD"},
    {.key = "QUARL_MEM_CHECK_IN_HOOK",
     .bit = cfg_bit(kMemCheckInHook),
     .resettable = true,
     .effect = "Bears on the bit that QUARL_SLOPOVER_API stores besides its trigger; starts no check of its own."},
    {.key = "QUARL_LOG_OVERLAY",
     .bit = cfg_bit(kLogOverlay),
     .resettable = true,
     .effect = "Overwrite an existing file of a log's name when the log is first created; 0 leaves such a file alone."},
    {.key = "QUARL_TIMER",
     .bit = cfg_bit(kTimer),
     .effect = "Allow the heap check on SIGALRM (see QUARL_SLOPOVER_TIMER).",
     .depends = "QUARL_SLOPOVER_TIMER"},
    {.key = "QUARL_SLOPOVER_MALLOC",
     .bit = slop_bit(kSlopMalloc),
     .resettable = true,
     .effect = "Check the whole heap at every allocation.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {.key = "QUARL_SLOPOVER_FREE",
     .bit = slop_bit(kSlopFree),
     .resettable = true,
     .effect = "Check the whole heap at every release.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {.key = "QUARL_SLOPOVER_THREAD",
     .bit = slop_bit(kSlopThread),
     .resettable = true,
     .effect = "Accepted for older files; has no effect."},
    {.key = "QUARL_SLOPOVER_TIMER",
     .bit = slop_bit(kSlopTimer),
     .set = set_slopover_timer,
     .effect = "Check the whole heap on SIGALRM.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER QUARL_TIMER"},
    {.key = "QUARL_SLOPOVER_EXIT",
     .bit = slop_bit(kSlopExit),
     .default_on = true,
     .resettable = true,
     .default_value = "1",
     .effect = "Check the whole heap at exit.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {.key = "QUARL_SLOPOVER_API",
     .bit = slop_bit(kSlopApi),
     .set = set_slopover_api,
     .default_on = true,
     .resettable = true,
     .default_value = "1",
     .effect = "quarl_check_mem checks the whole heap.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {.key = "QUARL_SLOPOVER_USER",
     .bit = slop_bit(kSlopUser),
     .value = ItemValue::kSignalNumber,
     .set = set_slopover_user,
     .range = {1, kLastSignal},
     .values = "NUMBER",
     .default_value = "none",
     .effect = "Check the whole heap on the signal of this number (a number, not a name).",
     .depends = "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER"},
    {.key = "QUARL_MEM_CHECK",
     .bit = cfg_bit(kMemCheck),
     .resettable = true,
     .effect = "Check the whole heap after every packet that the agent accepts.",
     .depends = "QUARL_ALL QUARL_MEM_HEAD QUARL_SLOPOVER QUARL_DEMO_THREAD"},
    {.key = "QUARL_PRINT_PROFINFO",
     .bit = cfg_bit(kPrintProfinfo),
     .resettable = true,
     .effect = "Print the statistics on the QUARL_SIG signal, at exit and after every packet; also the histogram of unfreed "
     "memory.",
     .depends = "QUARL_ALL QUARL_PROF"},
};
// clang-format on
inline constexpr int kItemCount = sizeof kItemRows / sizeof kItemRows[0];
static_assert(kItemCount == 36);

// The row of a key, compared exactly; null for an unknown key.
const ItemRow* find_item(const char* key);

}  // namespace quarl
