#include "report/analysis/thread_tally.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "report/analysis/ledger_reader.h"

namespace quarl::report {
namespace {

constexpr int kAllocating[] = {kOpMalloc, kOpRealloc, kOpCalloc, kOpMemalign, kOpMmap, kOpMmapFile};
constexpr int kReleasing[] = {kOpFree, kOpMunmap, kOpReallocRelease, kOpMunmapFile};

ThreadTally tally_of(const ThreadProf& thread) {
  ThreadTally tally;
  tally.tid = thread.tid;
  tally.name = std::string(thread.name, strnlen(thread.name, sizeof(thread.name)));
  for (int operation : kAllocating) {
    tally.allocations += thread.calls[operation] - thread.failed[operation];
    tally.allocated += thread.totals[operation];
  }
  // The allocator's own mappings are counted once more under their own code, and as the application's.
  tally.allocations -= std::min<uint64_t>(tally.allocations, thread.calls[kOpChunkMap]);
  tally.allocated -= std::min(tally.allocated, thread.totals[kOpChunkMap]);
  for (int operation : kReleasing) {
    tally.releases += thread.calls[operation] - thread.failed[operation];
    tally.released += thread.totals[operation];
  }
  tally.releases -= std::min<uint64_t>(tally.releases, thread.calls[kOpChunkUnmap]);
  tally.released -= std::min(tally.released, thread.totals[kOpChunkUnmap]);
  tally.failures = std::accumulate(std::begin(thread.failed), std::end(thread.failed), uint64_t{0});
  tally.held = thread.unfree_size;
  tally.peak = thread.unfree_peak;
  tally.in_place = thread.in_place;
  tally.shrunk = thread.shrink;
  return tally;
}

void count(ThreadTally& tally, const OpRecord& record) {
  tally.tid = record.tid;
  if (record.result == kKindFailed) ++tally.failures;
  if (record.result == kKindAllocated) {
    ++tally.allocations;
    tally.allocated += record.size;
  }
  if (record.result == kKindReleased) {
    ++tally.releases;
    tally.released += record.size;
  }
}

uint32_t first_record_time(const Log& log, const Snapshot& snapshot) {
  RecordStream stream(log, snapshot);
  for (auto batch = stream.next(); !batch.empty(); batch = stream.next()) {
    for (const OpRecord& record : batch) {
      if (record.time != 0) return record.time;
    }
  }
  return 0;
}

// Of a record log from its first record, of a chain from its first snapshot, to the last write.
uint32_t covered_seconds(const Log& log, const Snapshot& snapshot) {
  bool records = log.kind() == LogKind::kRecords;
  uint32_t first = records ? first_record_time(log, snapshot) : log.snapshots().front().header.time;
  return snapshot.header.time > first && first != 0 ? snapshot.header.time - first : 0;
}

ThreadTallies tally_records(const Log& log, const Snapshot& snapshot) {
  std::map<uint32_t, ThreadTally> by_tid;
  LedgerResult result = read_ledger(log, snapshot, [&](const OpRecord& record, const Ledger&) {
    if (record.tid != 0) count(by_tid[record.tid], record);
  });
  result.ledger->for_each_held([&](const LiveEntry& entry) {
    if (entry.tid != 0 && !entry.from_file) by_tid[entry.tid].held += entry.size;
  });
  ThreadTallies tallies;
  for (auto& [tid, tally] : by_tid) tallies.threads.push_back(tally);
  tallies.seconds = result.last_time - result.first_time;
  return tallies;
}

}  // namespace

ThreadTallies tally_threads(const Log& log, const Snapshot& snapshot) {
  ThreadTallies tallies;
  for (const ThreadProf& thread : log.threads(snapshot)) tallies.threads.push_back(tally_of(thread));
  tallies.from_table = !tallies.threads.empty();
  tallies.seconds = covered_seconds(log, snapshot);
  if (tallies.threads.empty() && log.kind() == LogKind::kRecords) tallies = tally_records(log, snapshot);
  std::stable_sort(tallies.threads.begin(), tallies.threads.end(),
                   [](const ThreadTally& a, const ThreadTally& b) { return a.allocated > b.allocated; });
  return tallies;
}

}  // namespace quarl::report
