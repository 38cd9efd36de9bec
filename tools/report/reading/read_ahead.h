// Raw records of a stretch of a file, the next batch being copied out of the page cache while this one is looked at.
#pragma once

#include <cstdint>
#include <future>
#include <span>
#include <vector>

#include "quarl/logs/format.h"
#include "report/reading/log_file.h"

namespace quarl::report {

class ReadAhead {
 public:
  // `count` records from `offset` on; `file` must outlive this and must not move.
  ReadAhead(const LogFile& file, uint64_t offset, uint64_t count);

  // The next records, empty behind the last whole one; valid until the next call. Throws LogError.
  std::span<OpRecord> next();

 private:
  size_t fill(std::vector<OpRecord>& batch);
  void start();

  const LogFile& file_;
  uint64_t offset_;
  uint64_t left_;
  std::vector<OpRecord> current_;
  std::vector<OpRecord> coming_;
  std::future<size_t> filled_;  // how much of coming_; last, so that it is waited for before the rest goes
};

}  // namespace quarl::report
