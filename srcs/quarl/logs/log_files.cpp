#include "logs/log_files.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "logs/mapping_records.h"
#include "logs/record_buffer.h"
#include "logs/sections.h"
#include "platform/print.h"

namespace quarl {

constinit LogFile record_log;
constinit LogFile snapshot_log;
constinit LogFile autosnap_log;
constinit LogFile maps_file;
constinit LogHeader main_header{};
constinit LogHeader autosnap_header{};

namespace {

uint8_t host_byte_order() {
  const uint16_t probe = 0x1234;
  uint8_t first = 0;
  memcpy(&first, &probe, 1);
  return first == 0x12 ? kBigEndian : kLittleEndian;
}

LogHeader identity() {
  LogHeader header{};
  memcpy(header.magic, kLogMagic, sizeof header.magic);
  header.byte_order = host_byte_order();
  memcpy(header.proc_name, proc_name, sizeof proc_name);
  header.pid = static_cast<uint32_t>(proc_pid);
  header.thread_slots = kThreadSlots;
  header.thread_stats = Flags().set(kThread) ? kThreadStatsOn : 0;
  header.trace_depth = kMaxTrace;
  return header;
}

// The whole layout but records. The calls that lay it out are not checked one by one: a file that could not be filled
// is told by the first write behind it.
void lay_out(LogFile& file) REQUIRES(hook_mutex) {
  file.write(&main_header, sizeof main_header);
  file.write_zeros(maps_section_size());
  write_profile_block(file);
  write_thread_table(file);
  fill_maps_section(file, main_header);
  file.seek_end();
}

bool may_create(LogFile& file, const char* name) REQUIRES(hook_mutex) {
  if (file.is_open()) return false;
  if (Flags().set(kLogOverlay) && !file.created()) return true;
  return !file.exists(name);
}

void open_one(LogFile& file, const char* name) REQUIRES(hook_mutex) {
  if (!may_create(file, name)) return;
  if (file.create(name)) {
    lay_out(file);
  } else {
    print_write_failure();
  }
}

}  // namespace

bool snapshot_log_in_use(const Flags& flags) {
  return !flags.record_log() && flags.header();
}

void open_maps_file() {
  TextBuffer<256> path;
  path.format("/proc/%d/maps", proc_pid).terminate();
  if (!maps_file.open_read_only(path.data())) print(kStdout, "Open proc maps file %s failed\n", path.data());
}

void build_headers() {
  main_header = identity();
  lay_out_from(0, &main_header);
  main_header.snapshot_number = 1;
  autosnap_header = identity();
}

void build_headers_and_buffers() {
  build_headers();
  primary_buffer.allocate();
  autosnap_buffer.allocate();
  set_up_record_pages();
}

void open_log_files() {
  const Flags flags;
  if (flags.record_log()) {
    open_one(record_log, record_log_name);
  } else if (flags.header()) {
    open_one(snapshot_log, snapshot_log_name);
  }
}

void reopen_snapshot_log() {
  open_child_logs();
  if (!snapshot_log_in_use(Flags()) || snapshot_log.is_open() || !snapshot_log.exists(snapshot_log_name)) return;
  if (snapshot_log.reopen(snapshot_log_name)) snapshot_log.seek_end();
}

void open_child_logs() {
  if (!forked_child || record_log.created() || snapshot_log.created()) return;
  open_log_files();
}

}  // namespace quarl
