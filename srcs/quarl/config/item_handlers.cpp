#include "config/item_handlers.h"

#include <signal.h>
#include <stdlib.h>

#include "config/signal_names.h"
#include "logs/dump.h"
#include "logs/interval_timer.h"
#include "logs/log_names.h"
#include "logs/statistics.h"
#include "platform/print.h"
#include "quarlheap/checking/heap_check.h"

namespace quarl {
namespace {

constexpr int kDefaultDumpSignal = 10;   // SIGUSR1
constexpr int kDefaultTimerSignal = 14;  // SIGALRM
constexpr uint32_t kDefaultBufferSize = 28000;

}  // namespace

int apply_log_filename(const char* value) {
  const bool plain = value[0] == '1' && value[1] == '\0';
  set_log_names(plain ? "" : value);
  return 0;
}

int apply_sig(const char* value) {
  signal(signal_of_value(value, kDefaultDumpSignal), handle_dump_signal);
  return 0;
}

int apply_prof(const char* value) {
  const bool there = make_prof_info();
  if (is_on(value)) {
    if (there) set_flag(cfg_flags, kProf);
  } else if (Flags().prof()) {
    clear_flag(cfg_flags, kProf);
  }
  return 0;
}

int apply_thread(const char* value) {
  const bool there = make_thread_table();
  const Flags flags;
  if (flags.set(kAll) && !flags.prof()) {
    print(kStdout, "Can not set thread type.For the PROF function is not set.\n");
    return 0;
  }
  put_flag(cfg_flags, kThread, is_on(value) && there);
  return 0;
}

int apply_mmap(const char* value) {
  QR_TRACE_MMAP = is_on(value) ? 1 : 0;
  if (prof_info != nullptr) prof_info->trace_mmap = static_cast<uint32_t>(QR_TRACE_MMAP);
  return 0;
}

int apply_random_fail(const char* value) {
  if (is_on(value) && random_seeded == 0) {
    srandom(static_cast<unsigned>(proc_pid));
    random_seeded = 1;
  }
  put_flag(cfg_flags, kRandomFail, is_on(value));
  return 0;
}

int apply_head_time(const char* value) {
  put_flag(cfg_flags, kHeadTime, value[0] == '1' || value[0] == '2');
  if (value[0] == '2') timer_clock_on = 1;
  return 0;
}

int apply_timer_sig(const char* value) {
  qr_sig_num = signal_of_value(value, kDefaultTimerSignal);
  return 0;
}

int apply_time_interval(const char* value) {
  set_up_interval_timer(atoi(value));
  return 0;
}

int apply_snap_interval(const char* value) {
  set_snapshot_interval(atoi(value));
  return 0;
}

int apply_snap_detail(const char* value) {
  snap_detail = is_on(value) ? 1 : 0;
  return 0;
}

int apply_head_stackdepth(const char* value) {
  const int depth = atoi(value);
  const bool usable = depth >= 1 && depth <= kMaxTrace;
  if (usable) stack_depth = static_cast<int16_t>(depth == 1 ? kDefaultDepth : depth);
  put_flag(cfg_flags, kHeadStackdepth, usable);
  return 0;
}

int apply_maps_size(const char* value) {
  const int size = atoi(value);
  if (size > 1) maps_size_kb = size;
  return 0;
}

int apply_trace_bufsize(const char* value) {
  const uint32_t records = static_cast<uint32_t>(atoi(value)) / sizeof(OpRecord);
  const bool default_size = value[0] == '0' || value[0] == '1' || records == 0;
  trace_buf_size = default_size ? kDefaultBufferSize : records * sizeof(OpRecord);
  return 0;
}

int apply_slopover_timer(const char* value) {
  put_flag(slop_flags, kSlopTimer, is_on(value));
  if (is_on(value)) signal(SIGALRM, handle_check_signal);
  return 0;
}

// Turns the trigger of quarl_check_mem on and off; the other bit is only kept.
int apply_slopover_api(const char* value) {
  put_flag(slop_flags, kSlopApi, is_on(value));
  if (Flags().set(kMemCheckInHook)) put_flag(slop_flags, kSlopApiInHook, is_on(value));
  return 0;
}

int apply_slopover_user(const char* value) {
  set_flag(slop_flags, kSlopUser);
  signal(atoi(value), handle_check_signal);
  return 0;
}

}  // namespace quarl
