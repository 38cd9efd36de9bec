#include "logs/files/log.h"

#include <cerrno>

#include "logs/files/sections.h"
#include "platform/system.h"
#include "state/clock.h"

namespace quarl {

void Log::create(const char* name) {
  if (!told(file_.create(name))) return;
  file_.append(&header_, sizeof header_).unchecked();
  file_.append_zeros(maps_section_size()).unchecked();
  append_profile_block(file_).unchecked();
  append_thread_table(file_).unchecked();
  fill_maps_section(file_, header_);
}

void Log::reopen(const char* name) {
  file_.reopen(name).unchecked();  // it stays closed then
}

void Log::write_header() {
  told(file_.patch(0, &header_, sizeof header_));
}

void Log::refresh_header() {
  header_.record_count = 0;
  header_.time = seconds_now();
  header_.next_snapshot = 0;
  write_header();
}

void Log::refresh_maps() {
  refresh_maps_section(file_, header_);
}

void Log::refresh_statistics() {
  refresh_statistics_sections(file_, header_);
}

void Log::flush() {
  const KeepErrno keep;
  if (buffer_.count > 0) {
    const auto count = static_cast<size_t>(buffer_.count);
    told(file_.is_open() ? file_.append_items(buffer_.records, sizeof(OpRecord), count) : FileResult::failure(EBADF));
  }
  buffer_.clear();
}

void Log::begin_snapshot() {
  buffer_.clear();
  told(file_.cut(header_.records_offset));
}

void Log::end_snapshot(uint32_t records) {
  flush();
  header_.record_count = buffer_.usable() ? records : 0;
  header_.time = seconds_now();
  write_header();
  header_.record_count = 0;
  header_.time = 0;
}

}  // namespace quarl
