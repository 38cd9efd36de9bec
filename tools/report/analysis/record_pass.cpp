// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/record_pass.h"

#include <algorithm>

#include "report/reading/progress.h"

namespace quarl::report {
namespace {

constexpr uint64_t kLastRecords = 1000;

bool has_order(const Log& log) {
  return log.kind() == LogKind::kRecords;
}

}  // namespace

RecordPass::RecordPass(const Log& log, const Snapshot& snapshot, Wanted wanted, Ledger::Observer observer)
    : log_(log), snapshot_(snapshot), stream_(log, snapshot), ledger_(has_order(log)), observer_(std::move(observer)) {
  if (wanted.threads) table_ = tally_table(log.threads(snapshot));
  if (wanted.threads && has_order(log)) thread_count_.emplace();
  if (wanted.timeline && has_order(log)) timeline_.emplace();
}

ThreadTallies RecordPass::threads() {
  ThreadTallies& table = table_.value();
  table.seconds = covered_seconds();
  if (!thread_count_ || table.calls >= ledger().calls()) return table;
  ThreadTallies counted = thread_count_->tallies(ledger(), table);
  counted.seconds = times_.span();
  return counted.threads.empty() ? table : counted;
}

// Of a record log from its first record, of a chain from its first snapshot, to the last write.
uint32_t RecordPass::covered_seconds() {
  uint32_t first = has_order(log_) ? first_time() : log_.snapshots().front().header.time;
  return snapshot_.header.time > first && first != 0 ? snapshot_.header.time - first : 0;
}

uint32_t RecordPass::now() {
  if (moment_.number || moment_.time) return whole().times_.largest;
  return snapshot_.header.time != 0 ? snapshot_.header.time : last_time();
}

// The clock of the records goes on, so that the last of them have the latest time.
uint32_t RecordPass::last_time() const {
  const uint64_t count = std::min<uint64_t>(snapshot_.records, kLastRecords);
  const uint64_t first = snapshot_.header.records_offset + (snapshot_.records - count) * sizeof(OpRecord);
  RecordStream stream(log_, first, count);
  Times times;
  for (auto batch = stream.next(); !batch.empty(); batch = stream.next()) times.add(batch);
  return times.largest;
}

RecordPass& RecordPass::whole() {
  go_on(false);
  return *this;
}

std::span<const OpRecord> RecordPass::next() {
  return has_order(log_) ? ordered_.next() : stream_.next();
}

uint32_t RecordPass::first_time() {
  go_on(true);
  return times_.first;
}

void RecordPass::go_on(bool to_first_time) {
  if (ended_) return;
  Progress progress(log_.file().path(), stream_.total());
  Ledger::Observer observer = observers();
  while (!to_first_time || times_.first == 0) {
    auto batch = next();
    const bool last = cut(batch);
    times_.add(batch);
    if (has_order(log_)) sequence_.add(batch);
    ledger_.apply(batch, observer);
    progress.update(stream_.done());
    if (last) return finish();
  }
}

bool RecordPass::is_past(const OpRecord& record) const {
  return (moment_.number && record.seq_num > *moment_.number) || (moment_.time && record.time > *moment_.time);
}

// Leaves what is not past the moment; true when nothing more is to be read.
bool RecordPass::cut(std::span<const OpRecord>& batch) const {
  if (batch.empty()) return true;
  if (!moment_.number && !moment_.time) return false;
  auto past = std::find_if(batch.begin(), batch.end(), [this](const OpRecord& record) { return is_past(record); });
  if (past == batch.end()) return false;
  batch = batch.first(static_cast<size_t>(past - batch.begin()));
  return true;
}

Ledger::Observer RecordPass::observers() {
  if (!thread_count_ && !timeline_) return observer_;
  return [this](const OpRecord& record, const Ledger& ledger) {
    if (thread_count_) thread_count_->add(record, ledger);
    if (timeline_) timeline_->sample(record, ledger.held());
    if (observer_) observer_(record, ledger);
  };
}

void RecordPass::finish() {
  ended_ = true;
  if (!has_order(log_)) add_uncounted_faults();
  ledger_.finish();
}

// Fault reports that lie behind the records which the header counts.
void RecordPass::add_uncounted_faults() {
  uint64_t offset = snapshot_.header.records_offset + snapshot_.records * sizeof(OpRecord);
  RecordStream stream(log_, offset, snapshot_.uncounted);
  for (auto batch = stream.next(); !batch.empty(); batch = stream.next()) {
    for (const OpRecord& record : batch) {
      if (record.result == kKindSlopHead || record.result == kKindSlopTail) ledger_.add_fault(record);
    }
  }
}

void RecordPass::Sequence::add(std::span<const OpRecord> records) {
  Sequence seen = *this;  // of its own, so that it stays in registers
  for (const OpRecord& record : records) {
    if (record.seq_num <= seen.last) continue;
    if (seen.last == 0) {
      seen.first = record.seq_num;
    } else {
      seen.missing += record.seq_num - seen.last - 1;
    }
    seen.last = record.seq_num;
  }
  *this = seen;
}

void RecordPass::Times::add(std::span<const OpRecord> records) {
  Times seen = *this;  // of its own, so that it stays in registers
  for (const OpRecord& record : records) {
    seen.before_smallest = std::min(seen.before_smallest, record.time - 1);
    seen.largest = std::max(seen.largest, record.time);
  }
  *this = seen;
  if (first != 0 || before_smallest == UINT32_MAX) return;
  first = std::find_if(records.begin(), records.end(), [](const OpRecord& record) { return record.time != 0; })->time;
}

}  // namespace quarl::report
