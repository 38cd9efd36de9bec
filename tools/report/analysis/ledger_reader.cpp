#include "report/analysis/ledger_reader.h"

#include <algorithm>

#include "report/reading/progress.h"

namespace quarl::report {
namespace {

void see_time(LedgerResult& result, uint32_t time) {
  if (time == 0) return;
  result.first_time = result.first_time == 0 ? time : std::min(result.first_time, time);
  result.last_time = std::max(result.last_time, time);
}

void apply(LedgerResult& result, std::span<const OpRecord> batch, const RecordObserver& observer) {
  constexpr size_t kAhead = 8;
  for (size_t index = 0; index < batch.size(); ++index) {
    const OpRecord& record = batch[index];
    if (index + kAhead < batch.size()) result.ledger->expect(batch[index + kAhead].start_addr);
    see_time(result, record.time);
    result.ledger->apply(record);
    if (observer) observer(record, *result.ledger);
  }
}

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

LedgerResult read_ledger(const Log& log, const Snapshot& snapshot, const RecordObserver& observer) {
  LedgerResult result = {std::make_unique<Ledger>(log.kind() == LogKind::kRecords)};
  RecordStream stream(log, snapshot);
  Progress progress(log.file().path(), stream.total());
  for (auto batch = stream.next(); !batch.empty(); batch = stream.next()) {
    apply(result, batch, observer);
    progress.update(stream.done());
  }
  if (log.kind() != LogKind::kRecords) add_uncounted_faults(log, snapshot, *result.ledger);
  result.ledger->finish();
  result.records = stream.done();
  result.damaged = stream.damaged();
  return result;
}

}  // namespace quarl::report
