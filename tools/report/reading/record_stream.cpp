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

RecordStream::RecordStream(const Log& log, const Snapshot& snapshot, uint64_t count)
    : log_(log), offset_(snapshot.header.records_offset), total_(count), batch_(std::min<uint64_t>(kBatch, count)) {}

std::span<const OpRecord> RecordStream::next() {
  while (done_ < total_) {
    size_t wanted = static_cast<size_t>(std::min<uint64_t>(batch_.size(), total_ - done_));
    size_t got = log_.file().read_at(offset_, batch_.data(), wanted * sizeof(OpRecord)) / sizeof(OpRecord);
    if (got == 0) break;  // the file was truncated while it was read
    offset_ += got * sizeof(OpRecord);
    done_ += got;
    if (log_.swapped())
      std::for_each(batch_.begin(), batch_.begin() + got, [](OpRecord& record) { swap_bytes(record); });
    if (size_t kept = drop_damaged(got)) return {batch_.data(), kept};
  }
  return {};
}

size_t RecordStream::drop_damaged(size_t count) {
  auto end = batch_.begin() + static_cast<ptrdiff_t>(count);
  auto first = std::find_if_not(batch_.begin(), end, is_sound);
  if (first == end) return count;
  size_t kept =
      static_cast<size_t>(std::remove_if(first, end, [](const OpRecord& r) { return !is_sound(r); }) - batch_.begin());
  damaged_ += count - kept;
  return kept;
}

}  // namespace quarl::report
