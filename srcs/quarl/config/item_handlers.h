// What the value of each item does, in the order of kItemTable. On/off items look at the first character only: 1 is on,
// anything else off. Numbers are read with atoi.
#pragma once

#include "config/items.h"
#include "config/state/config_state.h"

namespace quarl {

int apply_log_filename(const char* value);
int apply_sig(const char* value);
int apply_prof(const char* value);
int apply_thread(const char* value);
int apply_mmap(const char* value);
int apply_random_fail(const char* value);
int apply_head_time(const char* value);
int apply_timer_sig(const char* value);
int apply_time_interval(const char* value);
int apply_snap_interval(const char* value);
int apply_snap_detail(const char* value);
int apply_head_stackdepth(const char* value);
int apply_maps_size(const char* value);
int apply_trace_bufsize(const char* value);
int apply_slopover_timer(const char* value);
int apply_slopover_api(const char* value);
int apply_slopover_user(const char* value);

inline bool is_on(const char* value) {
  return value[0] == '1';
}

template <uint32_t& kWord, uint32_t kBit>
int put_bit(const char* value) {
  put_flag(kWord, kBit, is_on(value));
  return 0;
}

inline constexpr ItemHandler kItemHandlers[kItemCount] = {
    put_bit<cfg_flags, kAll>,
    put_bit<cfg_flags, kOutputLog>,
    apply_log_filename,
    put_bit<cfg_flags, kDemoThread>,
    apply_sig,
    apply_prof,
    apply_thread,
    apply_mmap,
    put_bit<cfg_flags, kHeapLimit>,
    put_bit<cfg_flags, kStackLimit>,
    apply_random_fail,
    put_bit<cfg_flags, kReset>,
    put_bit<cfg_flags, kMemHead>,
    put_bit<cfg_flags, kHeadTid>,
    apply_head_time,
    apply_timer_sig,
    apply_time_interval,
    apply_snap_interval,
    apply_snap_detail,
    apply_head_stackdepth,
    apply_maps_size,
    apply_trace_bufsize,
    put_bit<cfg_flags, kRecordLogAtFree>,
    put_bit<cfg_flags, kSlopover>,
    put_bit<cfg_flags, kMemCheckInHook>,
    put_bit<cfg_flags, kLogOverlay>,
    put_bit<cfg_flags, kTimer>,
    put_bit<slop_flags, kSlopMalloc>,
    put_bit<slop_flags, kSlopFree>,
    put_bit<slop_flags, kSlopThread>,
    apply_slopover_timer,
    put_bit<slop_flags, kSlopExit>,
    apply_slopover_api,
    apply_slopover_user,
    put_bit<cfg_flags, kMemCheck>,
    put_bit<cfg_flags, kPrintProfinfo>,
};

}  // namespace quarl
