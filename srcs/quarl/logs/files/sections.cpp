// SPDX-License-Identifier: Apache-2.0
#include "logs/files/sections.h"

#include <errno.h>
#include <string.h>

#include "logs/files/maps_file.h"
#include "logs/statistics/statistics.h"
#include "platform/libc_hooks.h"
#include "platform/print.h"
#include "state/process.h"

namespace quarl {
namespace {

uint8_t host_byte_order() {
  const uint16_t probe = 0x1234;
  uint8_t first = 0;
  memcpy(&first, &probe, 1);
  return first == 0x12 ? kBigEndian : kLittleEndian;
}

// Bytes of `text` up to and with its last line end; 0 when there is none.
size_t whole_lines(const char* text, size_t size) {
  while (size > 0 && text[size - 1] != '\n') --size;
  return size;
}

// Copies the maps text from the maps file's position to the offset, cut after the last whole line that leaves room for
// a NUL in the section. Returns its bytes.
uint64_t copy_maps_text(LogFile& file, int64_t offset) REQUIRES(hook_mutex) {
  uint64_t room = maps_section_size() - 1;  // for the text; its NUL is there already
  char line_start[1024];
  size_t held = 0;  // bytes in the buffer that do not make a whole line yet
  while (room > 0) {
    const long got = maps_file.read(line_start + held, sizeof line_start - held);
    if (got < 1) break;
    held += static_cast<size_t>(got);
    size_t out = whole_lines(line_start, held);
    if (out == 0 && held == sizeof line_start) out = held;  // a line longer than the buffer
    const bool last = out > room;
    if (last) out = whole_lines(line_start, static_cast<size_t>(room));
    told(file.patch(offset, line_start, out));
    offset += static_cast<int64_t>(out);
    room -= out;
    if (last) break;
    held -= out;
    memmove(line_start, line_start + out, held);
  }
  return maps_section_size() - 1 - room;
}

FileResult append_or_zeros(LogFile& file, const void* data, size_t size) {
  return data != nullptr ? file.append(data, size) : file.append_zeros(size);
}

}  // namespace

LogHeader identity_header() {
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

bool layout_fits(int64_t start) {
  const uint64_t before_maps = static_cast<uint64_t>(start) + sizeof(LogHeader);
  return before_maps + maps_section_size() + sizeof(ProfInfo) + kThreadTableSize <= UINT32_MAX;
}

void lay_out_from(int64_t start, LogHeader* header) {
  header->maps_offset = static_cast<uint32_t>(start) + sizeof(LogHeader);
  header->stats_offset = header->maps_offset + static_cast<uint32_t>(maps_section_size());
  header->threads_offset = header->stats_offset + sizeof(ProfInfo);
  header->records_offset = header->threads_offset + kThreadTableSize;
}

FileResult append_sections(LogFile& file, const LogHeader& header, bool threads) {
  FileResult done = file.append(&header, sizeof header);
  if (done.ok()) done = file.append_zeros(maps_section_size());
  if (done.ok()) done = append_or_zeros(file, gathered_statistics(), sizeof(ProfInfo));
  if (done.ok() && threads) done = append_or_zeros(file, thread_table, kThreadTableSize);
  return done;
}

void fill_maps_section(LogFile& file, const LogHeader& header) {
  if (!maps_file.is_open()) return;
  if (maps_file.rewind()) {
    copy_maps_text(file, header.maps_offset);
  } else {
    static bool told_before = false;
    print_trouble(&told_before, {"maps", nullptr, errno}, "Seek the maps file failed.\n");
  }
}

void refresh_maps_section(LogFile& file, const LogHeader& header) {
  if (!maps_file.is_open()) return;
  if (!maps_file.rewind()) {
    static bool told_before = false;
    print_trouble(&told_before, {"maps", nullptr, errno}, "read maps file failed,and error is %s\n", error_text(errno));
    return;
  }
  const uint64_t copied = copy_maps_text(file, header.maps_offset);
  // A longer text from before must not look out behind this one.
  told(file.patch_zeros(header.maps_offset + static_cast<int64_t>(copied), maps_section_size() - copied));
}

void refresh_statistics_sections(LogFile& file, const LogHeader& header) {
  const ProfInfo* statistics = gathered_statistics();
  if (statistics == nullptr) return;
  told(file.patch(header.stats_offset, statistics, sizeof *statistics));
  if (Flags().set(kThread) && thread_table != nullptr) {
    told(file.patch(header.threads_offset, thread_table, kThreadTableSize));
  }
}

}  // namespace quarl
