#include "config/state/config_state.h"

namespace quarl {

constinit uint32_t cfg_flags = 0;
constinit uint32_t slop_flags = 0;

constinit int16_t stack_depth = kDefaultDepth;
constinit int maps_size_kb = 32;
constinit uint32_t trace_buf_size = 0;

constinit int snap_detail = 0;
constinit int snap_interval = 0;
constinit uint32_t next_snap_time = 0;
constinit int snap_count = 0;

constinit int timer_clock_on = 0;
constinit int timer_interval = 0;
constinit int clock_sec = 0;
constinit int clock_usec = 0;
constinit timer_t timer_id{};
constinit int random_seeded = 0;

constinit char record_log_name[kNameSize] = "program_default_record.log";
constinit char snapshot_log_name[kNameSize] = "unfree_memory_snapshot.log";
constinit char autosnap_log_name[kNameSize] = "";

constinit int proc_pid = 0;
constinit char proc_name[16] = "";
constinit bool forked_child = false;

constinit int hooks_installed = 0;

}  // namespace quarl

extern "C" {
constinit int qr_sig_num = 14;
constinit int QR_TRACE_MMAP = 0;
}
