// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/thread_tally.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "report/analysis/statistics.h"

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
  tally.held = held_bytes(thread);
  tally.peak = known_peak(thread.unfree_peak);
  tally.peak_exact = peak_is_exact(thread);
  tally.in_place = thread.in_place;
  tally.shrunk = thread.shrink;
  return tally;
}

ThreadTallies sorted(ThreadTallies tallies) {
  std::stable_sort(tallies.threads.begin(), tallies.threads.end(),
                   [](const ThreadTally& a, const ThreadTally& b) { return a.allocated > b.allocated; });
  return tallies;
}

}  // namespace

ThreadTallies tally_table(const std::vector<ThreadProf>& table) {
  ThreadTallies tallies;
  for (const ThreadProf& thread : table) {
    tallies.threads.push_back(tally_of(thread));
    tallies.calls += recorded_calls(thread);
  }
  tallies.from_table = !table.empty();
  return sorted(std::move(tallies));
}

// Whoever released the block for the resize is the one that resized it last.
void ThreadCount::undo_release(const OpRecord& restored) {
  auto found = std::find_if(last_resized_.begin(), last_resized_.end(),
                            [&](const auto& item) { return item.second == restored.start_addr; });
  if (found == last_resized_.end()) return;
  ThreadTally& tally = by_tid_[found->first];
  --tally.releases;
  tally.released -= restored.size;
}

void ThreadCount::add(const OpRecord& record, const Ledger& ledger) {
  if (record.tid == 0 || record.operation == kOpChunkMap || record.operation == kOpChunkUnmap) return;
  if (record.result == kKindAllocated && ledger.restored()) return undo_release(record);
  if (record.operation == kOpReallocRelease) last_resized_[record.tid] = record.start_addr;
  ThreadTally& tally = by_tid_[record.tid];
  tally.tid = record.tid;
  if (record.result == kKindFailed) ++tally.failures;
  if (record.result == kKindAllocated) {
    ++tally.allocations;
    tally.allocated += record.size;
  }
  if (record.result == kKindReleased) {
    ++tally.releases;
    tally.released += ledger.released();
  }
}

ThreadTallies ThreadCount::tallies(const Ledger& ledger, const ThreadTallies& table) const {
  std::map<uint32_t, ThreadTally> by_tid = by_tid_;
  for (const ThreadTally& known : table.threads) {
    if (auto found = by_tid.find(known.tid); found != by_tid.end()) found->second.name = known.name;
  }
  ledger.for_each_held([&](const LiveEntry& entry) {
    if (entry.tid != 0 && !entry.from_file) by_tid[entry.tid].held += entry.size;
  });
  ThreadTallies tallies;
  for (auto& [tid, tally] : by_tid) tallies.threads.push_back(tally);
  return sorted(std::move(tallies));
}

}  // namespace quarl::report
