// SPDX-License-Identifier: Apache-2.0
// The records of a record log as its bookkeeping wants them: in order, with the mappings that the allocator made for
// large blocks marked. What cannot be told yet waits for the records behind it.
#pragma once

#include <vector>

#include "report/analysis/large_blocks.h"
#include "report/reading/record_stream.h"

namespace quarl::report {

class OrderedRecords {
 public:
  // `stream` must outlive this.
  explicit OrderedRecords(RecordStream& stream) : stream_(stream) {}

  // The next records, empty at the end; valid until the next call.
  std::span<const OpRecord> next();

 private:
  std::span<const OpRecord> fill();

  RecordStream& stream_;
  LargeBlocks large_blocks_;
  std::vector<OpRecord> waiting_;
  size_t given_ = 0;  // of those in waiting_, given out by the last call
};

}  // namespace quarl::report
