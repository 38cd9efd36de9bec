// SPDX-License-Identifier: Apache-2.0
#include "report/reading/record_stream.h"

#include <algorithm>

#include "report/reading/byte_order.h"

namespace quarl::report {
namespace {

// 128 KB: they stay in a core's own cache between the copy out of the page cache and the analysis. Mapping the file
// instead, or copying on a second thread, was slower on all counts.
constexpr size_t kBatch = 460;

constexpr uint32_t bit(RecordKind kind) {
  return 1u << kind;
}
constexpr uint32_t kKinds =
    bit(kKindAllocated) | bit(kKindReleased) | bit(kKindFailed) | bit(kKindSlopHead) | bit(kKindSlopTail);

bool is_sound(const OpRecord& record) {
  bool kind = record.result < 32 && (kKinds >> record.result & 1) != 0;
  return kind && record.operation < kOpCount && record.stack_depth <= kMaxTrace;
}

}  // namespace

RecordStream::RecordStream(const Log& log, uint64_t offset, uint64_t count)
    : log_(log), offset_(offset), total_(count), batch_(std::min<uint64_t>(kBatch, count)) {}

std::span<OpRecord> RecordStream::next() {
  for (std::span<OpRecord> batch = read(); !batch.empty(); batch = read()) {
    if (auto sound = without_damaged(batch); !sound.empty()) return sound;
  }
  return {};
}

std::span<OpRecord> RecordStream::read() {
  size_t wanted = static_cast<size_t>(std::min<uint64_t>(batch_.size(), total_ - done_));
  size_t got = log_.file().read_at(offset_, batch_.data(), wanted * sizeof(OpRecord)) / sizeof(OpRecord);
  offset_ += got * sizeof(OpRecord);
  done_ += got;
  std::span<OpRecord> batch = {batch_.data(), got};  // empty at the end, or when the file was truncated meanwhile
  if (log_.swapped()) std::for_each(batch.begin(), batch.end(), [](OpRecord& record) { swap_bytes(record); });
  return batch;
}

std::span<OpRecord> RecordStream::without_damaged(std::span<OpRecord> batch) {
  auto end = std::remove_if(batch.begin(), batch.end(), [](const OpRecord& record) { return !is_sound(record); });
  size_t kept = static_cast<size_t>(end - batch.begin());
  damaged_ += batch.size() - kept;
  return batch.first(kept);
}

}  // namespace quarl::report
