// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/ordered_records.h"

namespace quarl::report {

std::span<const OpRecord> OrderedRecords::next() {
  waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<ptrdiff_t>(given_));
  given_ = 0;
  if (!waiting_.empty()) return fill();
  auto batch = stream_.next();  // mostly all of it is decided, and nothing is copied
  size_t decided = large_blocks_.mark(batch, batch.empty());
  if (decided == batch.size()) return batch;
  waiting_.assign(batch.begin() + static_cast<ptrdiff_t>(decided), batch.end());
  return decided != 0 ? batch.first(decided) : fill();
}

std::span<const OpRecord> OrderedRecords::fill() {
  do {
    auto batch = stream_.next();
    waiting_.insert(waiting_.end(), batch.begin(), batch.end());
    given_ = large_blocks_.mark(waiting_, batch.empty());
  } while (given_ == 0 && !waiting_.empty());
  return std::span(waiting_).first(given_);
}

}  // namespace quarl::report
