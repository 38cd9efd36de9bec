#include "report/reading/record_stream.h"

#include <algorithm>

#include "report/reading/byte_order.h"

namespace quarl::report {
namespace {

// 128 KB: they stay in a core's own cache between the copy out of the page cache and the analysis. Mapping the file
// instead, or copying on a second thread, was slower on all counts.
constexpr size_t kBuffer = 460;
// The heads of so many records stay in the innermost cache while they are checked and analysed.
constexpr size_t kBatch = 32;

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

RecordStream::RecordStream(const Log& log, const Snapshot& snapshot, uint64_t count)
    : log_(log), offset_(snapshot.header.records_offset), total_(count), buffer_(std::min<uint64_t>(kBuffer, count)) {}

std::span<const OpRecord> RecordStream::next() {
  while (!rest_.empty() || fill()) {
    std::span<OpRecord> batch = take_batch();
    if (!batch.empty()) return batch;
  }
  return {};
}

bool RecordStream::fill() {
  size_t wanted = static_cast<size_t>(std::min<uint64_t>(buffer_.size(), total_ - done_));
  size_t got = log_.file().read_at(offset_, buffer_.data(), wanted * sizeof(OpRecord)) / sizeof(OpRecord);
  offset_ += got * sizeof(OpRecord);
  rest_ = {buffer_.data(), got};  // empty at the end, or when the file was truncated while it was read
  return got != 0;
}

std::span<OpRecord> RecordStream::take_batch() {
  std::span<OpRecord> batch = rest_.first(std::min(kBatch, rest_.size()));
  rest_ = rest_.subspan(batch.size());
  done_ += batch.size();
  if (log_.swapped()) std::for_each(batch.begin(), batch.end(), [](OpRecord& record) { swap_bytes(record); });
  if (std::all_of(batch.begin(), batch.end(), is_sound)) return batch;
  auto end = std::remove_if(batch.begin(), batch.end(), [](const OpRecord& record) { return !is_sound(record); });
  size_t kept = static_cast<size_t>(end - batch.begin());
  damaged_ += batch.size() - kept;
  return batch.first(kept);
}

}  // namespace quarl::report
