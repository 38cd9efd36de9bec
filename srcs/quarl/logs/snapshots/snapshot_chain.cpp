#include "logs/snapshots/snapshot_chain.h"

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
  present_ = previous_ = 0;
  if (file_.create(autosnap_log_name).ok()) return true;
  print(kStdout, "Create auto snap file failed!\n");
  return false;
}

// The header image still holds the previous snapshot's fields.
void SnapshotChain::link_previous() {
  if (present_ == 0) return;
  header_.next_snapshot = static_cast<uint32_t>(present_);
  told(file_.patch(previous_, &header_, sizeof header_));
}

void SnapshotChain::append_sections() {
  told(file_.append_zeros(maps_section_size()));
  append_profile_block(file_).unchecked();  // a full disk was told by then
  if (Flags().set(kThread)) append_thread_table(file_).unchecked();
  fill_maps_section(file_, header_);
}

bool SnapshotChain::begin(int number) {
  if (!ensure_open()) return false;
  previous_ = present_;
  present_ = file_.end();
  link_previous();
  lay_out_from(present_, &header_);
  header_.record_count = 0;
  header_.snapshot_number = static_cast<uint32_t>(number);
  header_.time = static_cast<uint32_t>(clock_sec);
  header_.next_snapshot = 0;
  told(file_.append(&header_, sizeof header_));
  append_sections();
  return true;
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
  if (told(file_.patch(rows_end_, buffer_.records, bytes))) rows_end_ += static_cast<int64_t>(bytes);
  buffer_.clear();
}

void SnapshotChain::end_rows(uint32_t records) {
  write_rows();
  header_.record_count = records;
  header_.time = static_cast<uint32_t>(clock_sec);
  told(file_.patch(present_, &header_, sizeof header_));
}

void SnapshotChain::forget() {
  file_.forget();
  buffer_.clear();
  present_ = previous_ = 0;
}

}  // namespace quarl
