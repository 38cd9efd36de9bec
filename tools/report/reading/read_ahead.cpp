#include "report/reading/read_ahead.h"

#include <algorithm>

namespace quarl::report {
namespace {

// 0.6 MB: a thread's start is small against it, and the batch stays in a core's own cache.
constexpr uint64_t kBatch = 2048;

}  // namespace

ReadAhead::ReadAhead(const LogFile& file, uint64_t offset, uint64_t count)
    : file_(file), offset_(offset), left_(count) {
  if (count > kBatch) coming_.resize(kBatch);
  current_.resize(static_cast<size_t>(std::min(count, kBatch)));
}

size_t ReadAhead::fill(std::vector<OpRecord>& batch) {
  size_t wanted = static_cast<size_t>(std::min<uint64_t>(batch.size(), left_));
  size_t got = file_.read_at(offset_, batch.data(), wanted * sizeof(OpRecord)) / sizeof(OpRecord);
  offset_ += got * sizeof(OpRecord);
  left_ = got < wanted ? 0 : left_ - got;  // the file was truncated since it was opened
  return got;
}

void ReadAhead::start() {
  if (left_ != 0) filled_ = std::async(std::launch::async, [this] { return fill(coming_); });
}

std::span<OpRecord> ReadAhead::next() {
  size_t got = 0;
  if (filled_.valid()) {
    got = filled_.get();
    current_.swap(coming_);
  } else if (left_ != 0) {
    got = fill(current_);
  }
  start();
  return {current_.data(), got};
}

}  // namespace quarl::report
