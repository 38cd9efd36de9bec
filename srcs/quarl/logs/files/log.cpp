// SPDX-License-Identifier: Apache-2.0
#include "logs/files/log.h"

#include <cerrno>

#include "logs/files/log_event.h"
#include "logs/files/sections.h"
#include "platform/system.h"
#include "state/clock.h"

namespace quarl {

void Log::create(const char* name) {
  if (!told(file_.create(name))) return;
  tell_log(kind_, file_.path());
  lay_out().unchecked();
}

FileResult Log::lay_out() {
  const FileResult done = append_sections(file_, header_, true);
  laid_out_ = done.ok();
  if (laid_out_) {
    fill_maps_section(file_, header_);
  } else {
    file_.cut(0).unchecked();
  }
  return done;
}

bool Log::has_layout() {
  return laid_out_ || told(lay_out());
}

bool Log::ready() {
  return is_open() && has_layout();
}

void Log::forget() {
  file_.forget();
  laid_out_ = true;
  findings_ = holds_unfreed_ = false;
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
    if (!is_open()) {
      told(FileResult::failure(EBADF));
    } else if (has_layout()) {
      told(file_.append_items(buffer_.records, sizeof(OpRecord), static_cast<size_t>(buffer_.count)));
    }
  }
  buffer_.clear();
}

void Log::begin_snapshot() {
  buffer_.clear();
  told(file_.cut(header_.records_offset));
}

void Log::end_snapshot(uint32_t records, uint32_t own) {
  flush();
  holds_unfreed_ = own > 0;
  header_.record_count = buffer_.usable() ? records : 0;
  header_.time = seconds_now();
  write_header();
  header_.record_count = 0;
  header_.time = 0;
}

}  // namespace quarl
