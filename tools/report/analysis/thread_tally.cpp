#include "report/analysis/thread_tally.h"

#include <algorithm>
#include <cstring>
#include <numeric>

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

ThreadTallies sorted(ThreadTallies tallies) {
  std::stable_sort(tallies.threads.begin(), tallies.threads.end(),
                   [](const ThreadTally& a, const ThreadTally& b) { return a.allocated > b.allocated; });
  return tallies;
}

}  // namespace

ThreadTallies tally_table(const std::vector<ThreadProf>& table) {
  ThreadTallies tallies;
  for (const ThreadProf& thread : table) tallies.threads.push_back(tally_of(thread));
  tallies.from_table = !table.empty();
  return sorted(std::move(tallies));
}

void ThreadCount::add(const OpRecord& record) {
  if (record.tid == 0) return;
  ThreadTally& tally = by_tid_[record.tid];
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

ThreadTallies ThreadCount::tallies(const Ledger& ledger) const {
  std::map<uint32_t, ThreadTally> by_tid = by_tid_;
  ledger.for_each_held([&](const LiveEntry& entry) {
    if (entry.tid != 0 && !entry.from_file) by_tid[entry.tid].held += entry.size;
  });
  ThreadTallies tallies;
  for (auto& [tid, tally] : by_tid) tallies.threads.push_back(tally);
  return sorted(std::move(tallies));
}

}  // namespace quarl::report
