#include "report/reading/record_stream.h"

#include <algorithm>

#include "report/reading/byte_order.h"

namespace quarl::report {
namespace {

bool is_sound(const OpRecord& record) {
  bool kind = record.result == kKindAllocated || record.result == kKindReleased || record.result == kKindFailed ||
              record.result == kKindSlopHead || record.result == kKindSlopTail;
  return kind && record.operation < kOpCount && record.stack_depth <= kMaxTrace;
}

}  // namespace

RecordStream::RecordStream(const Log& log, const Snapshot& snapshot, uint64_t count)
    : swapped_(log.swapped()), total_(count), reader_(log.file(), snapshot.header.records_offset, count) {}

std::span<const OpRecord> RecordStream::next() {
  for (auto batch = reader_.next(); !batch.empty(); batch = reader_.next()) {
    done_ += batch.size();
    if (swapped_) std::for_each(batch.begin(), batch.end(), [](OpRecord& record) { swap_bytes(record); });
    auto sound = without_damaged(batch);
    if (!sound.empty()) return sound;
  }
  return {};
}

std::span<const OpRecord> RecordStream::without_damaged(std::span<OpRecord> batch) {
  auto end = std::remove_if(batch.begin(), batch.end(), [](const OpRecord& record) { return !is_sound(record); });
  auto kept = static_cast<size_t>(end - batch.begin());
  damaged_ += batch.size() - kept;
  return batch.first(kept);
}

}  // namespace quarl::report
