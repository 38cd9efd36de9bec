// A log, the one snapshot of it that is asked about, and everything needed to answer from it.
#pragma once

#include <optional>
#include <string>

#include "report/analysis/ledger_reader.h"
#include "report/analysis/statistics.h"
#include "report/analysis/thread_tally.h"
#include "report/symbols/symbolizer.h"

namespace quarl::report {

class Subject {
 public:
  // `argument` is a path, or a path with "@N" behind it for the snapshot of number N; without it the last snapshot is
  // meant. Throws LogError when the log cannot be read or has no such snapshot.
  Subject(const std::string& argument, std::optional<LogKind> kind, Desk& desk);

  const Log& log() const { return log_; }
  const Snapshot& snapshot() const { return *snapshot_; }
  Symbolizer& symbolizer() { return symbolizer_; }
  ProfInfo statistics() const { return log_.statistics(*snapshot_); }
  // Reads the records at the first call.
  const LedgerResult& result();
  const Ledger& ledger() { return *result().ledger; }
  // The log's notes and what reading the records added to them.
  std::vector<std::string> notes();
  // "sample_101_quarl.log@3", the "@3" only where the log has several snapshots.
  std::string label() const;

 private:
  void compare_with_statistics(std::vector<std::string>& notes);

  Log log_;
  const Snapshot* snapshot_;
  Symbolizer symbolizer_;
  std::optional<LedgerResult> result_;
};

}  // namespace quarl::report
