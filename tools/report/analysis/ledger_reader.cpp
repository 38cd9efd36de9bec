#include "report/analysis/ledger_reader.h"

#include <algorithm>

#include "report/reading/progress.h"

namespace quarl::report {
namespace {

// The times of records, of which 0 is none: less by one it is the largest number, which never is the smallest.
struct TimeSpan {
  uint32_t before_first = UINT32_MAX;
  uint32_t last = 0;

  void add(std::span<const OpRecord> records) {
    for (const OpRecord& record : records) {
      before_first = std::min(before_first, record.time - 1);
      last = std::max(last, record.time);
    }
  }
};

// Fault reports that lie behind the records which the header counts.
void add_uncounted_faults(const Log& log, const Snapshot& snapshot, Ledger& ledger) {
  Snapshot rest = snapshot;
  uint64_t offset = rest.header.records_offset + snapshot.records * sizeof(OpRecord);
  if (snapshot.uncounted == 0 || offset > UINT32_MAX) return;
  rest.header.records_offset = static_cast<uint32_t>(offset);
  RecordStream stream(log, rest, snapshot.uncounted);
  for (auto batch = stream.next(); !batch.empty(); batch = stream.next()) {
    for (const OpRecord& record : batch) {
      if (record.result == kKindSlopHead || record.result == kKindSlopTail) ledger.add_fault(record);
    }
  }
}

}  // namespace

LedgerResult read_ledger(const Log& log, const Snapshot& snapshot, const Ledger::Observer& observer) {
  LedgerResult result = {std::make_unique<Ledger>(log.kind() == LogKind::kRecords)};
  RecordStream stream(log, snapshot);
  TimeSpan times;
  Progress progress(log.file().path(), stream.total());
  for (auto batch = stream.next(); !batch.empty(); batch = stream.next()) {
    times.add(batch);
    result.ledger->apply(batch, observer);
    progress.update(stream.done());
  }
  if (log.kind() != LogKind::kRecords) add_uncounted_faults(log, snapshot, *result.ledger);
  result.ledger->finish();
  result.first_time = times.before_first + 1;
  result.last_time = times.last;
  result.records = stream.done();
  result.damaged = stream.damaged();
  return result;
}

}  // namespace quarl::report
