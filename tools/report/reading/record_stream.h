// SPDX-License-Identifier: Apache-2.0
// The records of one snapshot, in the order of the file, a bounded batch at a time.
#pragma once

#include <span>
#include <vector>

#include "report/reading/log.h"

namespace quarl::report {

class RecordStream {
 public:
  // Reads `count` records from `offset` on, bytes from the start of `log`, which must outlive the stream.
  RecordStream(const Log& log, uint64_t offset, uint64_t count);
  RecordStream(const Log& log, const Snapshot& snapshot)
      : RecordStream(log, snapshot.header.records_offset, snapshot.records) {}

  // The next batch, empty at the end; the caller's until the next call. Numbers are in this machine's byte order and
  // stack_depth is in [0, kMaxTrace]; a record whose operation, kind or depth cannot be is left out and counted.
  std::span<OpRecord> next();

  uint64_t total() const { return total_; }
  uint64_t done() const { return done_; }        // records read so far, damaged ones included
  uint64_t damaged() const { return damaged_; }  // records left out so far

 private:
  std::span<OpRecord> read();
  std::span<OpRecord> without_damaged(std::span<OpRecord> batch);

  const Log& log_;
  uint64_t offset_;
  uint64_t total_;
  uint64_t done_ = 0;
  uint64_t damaged_ = 0;
  std::vector<OpRecord> batch_;
};

}  // namespace quarl::report
