// Fills a ledger from a log.
#pragma once

#include <memory>

#include "report/analysis/ledger.h"
#include "report/reading/record_stream.h"

namespace quarl::report {

struct LedgerResult {
  std::unique_ptr<Ledger> ledger;
  uint64_t records = 0;  // read, damaged ones included
  uint64_t damaged = 0;
  uint32_t first_time = 0;  // smallest and largest time of a record, 0 when no record has one
  uint32_t last_time = 0;
};

LedgerResult read_ledger(const Log& log, const Snapshot& snapshot, const Ledger::Observer& observer = nullptr);

}  // namespace quarl::report
