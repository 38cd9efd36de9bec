// SPDX-License-Identifier: Apache-2.0
// Appends logs to a SQLite database, each whole or not at all.
#pragma once

#include <memory>
#include <unordered_map>

#include "report/analysis/record_pass.h"
#include "report/formats/database.h"
#include "report/symbols/symbolizer.h"

namespace quarl::report {

class SqliteImport {
 public:
  SqliteImport(const std::string& database, Desk& desk);
  ~SqliteImport();
  // Adds every snapshot of the log at `path`. A log that is in the database already is skipped; that and the log's own
  // notes are appended to `notes`.
  void add(const std::string& path, std::optional<LogKind> kind, std::vector<std::string>& notes);

 private:
  struct Statements;
  void name_codes();
  void add_snapshots(const Log& log, int64_t process);
  int64_t add_snapshot(const Snapshot& snapshot, int64_t process);
  void add_records(const Log& log, const Snapshot& snapshot, Symbolizer& symbolizer, int64_t id);
  void add_statistics(const Ledger& ledger, int64_t snapshot);
  void add_statistics(const ProfInfo& statistics, int64_t snapshot);
  void sum_up(const Log& log, const Snapshot& snapshot, RecordPass& pass, int64_t id);
  void add_threads(const ThreadTallies& tallies, int64_t id);
  int64_t trace(Symbolizer& symbolizer, const Frames& frames);
  int64_t add_trace(const std::string& signature, const std::vector<int64_t>& frames);
  int64_t frame(Symbolizer& symbolizer, const Frame& frame);
  int64_t module(Symbolizer& symbolizer, const std::string& path);

  Database database_;
  Desk& desk_;
  std::unique_ptr<Statements> statements_;
};

}  // namespace quarl::report
