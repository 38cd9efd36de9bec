// SPDX-License-Identifier: Apache-2.0
#include "logs/snapshots/snapshot_chain.h"

#include <cerrno>

#include "logs/files/log_event.h"
#include "logs/files/log_files.h"
#include "logs/files/log_names.h"
#include "logs/files/sections.h"
#include "platform/print.h"
#include "state/clock.h"

namespace quarl {

constinit SnapshotChain snapshot_chain;

void SnapshotChain::set_up() {
  build_header();
  buffer_.allocate(settings.trace_buf_size);
}

void SnapshotChain::build_header() {
  header_ = identity_header();
}

bool SnapshotChain::ensure_open() {
  if (file_.is_open()) return true;
  last_ = kNone;
  if (file_.create(autosnap_log_name).ok()) {
    tell_log("auto", file_.path());
    return true;
  }
  static bool told_before = false;
  print_trouble(&told_before, {"log", autosnap_log_name, errno}, "Create auto snap file failed!\n");
  return false;
}

// Behind the chain; what a snapshot left there that could not be cut off stays between.
FileResult SnapshotChain::find_place() {
  present_ = last_ == kNone ? 0 : file_.end();
  if (!layout_fits(present_)) return FileResult::failure(EFBIG);
  return present_ == file_.end() ? FileResult::success() : file_.cut(present_);
}

FileResult SnapshotChain::write_sections(int number) {
  lay_out_from(present_, &header_);
  header_.record_count = 0;
  header_.snapshot_number = static_cast<uint32_t>(number);
  header_.time = static_cast<uint32_t>(clock_sec);
  header_.next_snapshot = 0;
  return append_sections(file_, header_, Flags().set(kThread));
}

bool SnapshotChain::begin(int number) {
  if (!logs_are_possible() || !ensure_open() || !told(find_place())) return false;
  complete_ = told(write_sections(number));
  if (complete_) {
    fill_maps_section(file_, header_);
  } else {
    file_.cut(present_).unchecked();
  }
  return complete_;
}

FileResult SnapshotChain::link_to(int64_t snapshot) {
  const auto next = static_cast<uint32_t>(snapshot);
  return file_.patch(last_ + static_cast<int64_t>(offsetof(LogHeader, next_snapshot)), &next, sizeof next);
}

void SnapshotChain::end() {
  if (complete_ && last_ != kNone) complete_ = told(link_to(present_));
  if (complete_) {
    last_ = present_;
  } else {
    file_.cut(present_).unchecked();
  }
}

bool SnapshotChain::begin_rows() {
  buffer_.clear();
  rows_end_ = header_.records_offset;
  return buffer_.usable();
}

OpRecord* SnapshotChain::next_row() {
  if (buffer_.full()) write_rows();
  return buffer_.take_slot();
}

void SnapshotChain::write_rows() {
  const size_t bytes = sizeof(OpRecord) * static_cast<size_t>(buffer_.count);
  if (complete_) complete_ = told(file_.patch(rows_end_, buffer_.records, bytes));
  rows_end_ += static_cast<int64_t>(bytes);
  buffer_.clear();
}

void SnapshotChain::end_rows(uint32_t records) {
  write_rows();
  header_.record_count = records;
  header_.time = static_cast<uint32_t>(clock_sec);
  if (complete_) complete_ = told(file_.patch(present_, &header_, sizeof header_));
}

void SnapshotChain::forget() {
  file_.forget();
  buffer_.clear();
  last_ = kNone;
}

}  // namespace quarl
