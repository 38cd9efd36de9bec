#include "logs/sections.h"

#include <errno.h>
#include <string.h>

#include "logs/log_files.h"
#include "logs/statistics.h"
#include "platform/print.h"
#include "platform/seam.h"

namespace quarl {
namespace {

// Bytes of `text` up to and with its last line end; 0 when there is none.
size_t whole_lines(const char* text, size_t size) {
  while (size > 0 && text[size - 1] != '\n') --size;
  return size;
}

// Copies the maps text from the maps file's position to the file's, cut after the last whole line that leaves room for
// a NUL in the section. Returns its bytes.
size_t copy_maps_text(LogFile& file) REQUIRES(hook_mutex) {
  size_t room = maps_section_size() - 1;  // for the text; its NUL is there already
  char line_start[1024];
  size_t held = 0;  // bytes in the buffer that do not make a whole line yet
  while (room > 0) {
    const long got = maps_file.read(line_start + held, sizeof line_start - held);
    if (got < 1) break;
    held += static_cast<size_t>(got);
    size_t out = whole_lines(line_start, held);
    if (out == 0 && held == sizeof line_start) out = held;  // a line longer than the buffer
    const bool last = out > room;
    if (last) out = whole_lines(line_start, room);
    file.write_or_tell(line_start, out);
    room -= out;
    if (last) break;
    held -= out;
    memmove(line_start, line_start + out, held);
  }
  return maps_section_size() - 1 - room;
}

}  // namespace

void lay_out_from(int64_t start, LogHeader* header) {
  header->maps_offset = static_cast<uint32_t>(start) + sizeof(LogHeader);
  header->stats_offset = header->maps_offset + maps_section_size();
  header->threads_offset = header->stats_offset + sizeof(ProfInfo);
  header->records_offset = header->threads_offset + kThreadTableSize;
}

void fill_maps_section(LogFile& file, const LogHeader& header) {
  if (!file.seek_or_tell(header.maps_offset) || !maps_file.is_open()) return;
  if (maps_file.seek(0) < 0) {
    print(kStdout, "Seek the maps file failed.\n");
  } else {
    copy_maps_text(file);
  }
}

void write_profile_block(LogFile& file) {
  if (prof_info != nullptr) {
    file.write(prof_info, sizeof *prof_info);
  } else {
    file.write_zeros(sizeof *prof_info);
  }
}

void write_thread_table(LogFile& file) {
  if (thread_table != nullptr) {
    file.write(thread_table, kThreadTableSize);
  } else {
    file.write_zeros(kThreadTableSize);
  }
}

void refresh_maps_section(LogFile& file) {
  if (!file.seek_or_tell(main_header.maps_offset)) return;
  if (!maps_file.is_open()) return;
  if (maps_file.seek(0) < 0) {
    print(kStdout, "read maps file failed,and error is %s\n", error_text(errno));
    return;
  }
  const size_t copied = copy_maps_text(file);
  // A longer text from before must not look out behind this one.
  file.write_zeros_or_tell(maps_section_size() - copied);
  file.seek_end();
}

void refresh_statistics_sections(LogFile& file) {
  if (prof_info == nullptr || !file.seek_or_tell(main_header.stats_offset)) return;
  file.write_or_tell(prof_info, sizeof *prof_info);
  if (Flags().set(kThread) && thread_table != nullptr && file.seek_or_tell(main_header.threads_offset)) {
    file.write_or_tell(thread_table, kThreadTableSize);
  }
  file.seek_end();
}

}  // namespace quarl
