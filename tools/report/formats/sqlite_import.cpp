// SPDX-License-Identifier: Apache-2.0
#include "report/formats/sqlite_import.h"

#include <fmt/format.h>
#include <zlib.h>

#include "report/analysis/default_rules.h"
#include "report/analysis/statistics.h"
#include "report/formats/operation_name.h"
#include "report/formats/sqlite_schema.h"
#include "report/symbols/address_sample.h"

namespace quarl::report {

struct SqliteImport::Statements {
  explicit Statements(Database& database)
      : operation(database, "INSERT OR IGNORE INTO operations VALUES (?, ?)"),
        result(database, "INSERT OR IGNORE INTO results VALUES (?, ?)"),
        process_of(database, "SELECT id FROM processes WHERE digest = ?"),
        process(database, "INSERT INTO processes VALUES (NULL, ?, ?, ?, ?, ?, ?, ?)"),
        snapshot(database, "INSERT INTO snapshots VALUES (NULL, ?, ?, ?, ?, ?, ?, ?)"),
        statistics(database, "INSERT INTO statistics VALUES (?, ?, ?, ?, ?)"),
        thread(database, "INSERT OR REPLACE INTO threads VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
        module_of(database, "SELECT id FROM modules WHERE path = ? AND build_id = ifnull(?, '')"),
        module(database, "INSERT INTO modules VALUES (NULL, ?, ifnull(?, ''))"),
        frame_of(database,
                 "SELECT id FROM frames WHERE module_id = ? AND \"offset\" = ? AND function = ifnull(?, '') AND "
                 "file = ifnull(?, '') AND line = ? AND inlined = ?"),
        frame(database, "INSERT INTO frames VALUES (NULL, ?, ?, ifnull(?, ''), ifnull(?, ''), ?, ?)"),
        trace_of(database, "SELECT id FROM traces WHERE signature = ifnull(?, '')"),
        trace(database, "INSERT INTO traces VALUES (NULL, ifnull(?, ''))"),
        kept_trace(database, "INSERT OR IGNORE INTO kept_traces VALUES (?, ?)"),
        trace_frame(database, "INSERT INTO trace_frames VALUES (?, ?, ?)"),
        record(database, "INSERT INTO records VALUES (NULL, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0)"),
        hold(database, "UPDATE records SET held = 1 WHERE id = ?"),
        sum_up(database, "UPDATE snapshots SET bytes = ?, peak = ?, file_bytes = ?, file_peak = ? WHERE id = ?") {}

  Statement operation, result, process_of, process, snapshot, statistics, thread, module_of, module, frame_of, frame,
      trace_of, trace, kept_trace, trace_frame, record, hold, sum_up;
};

namespace {

// Tells one log from another, and a log that has grown since from its earlier self.
std::string digest_of(const Log& log) {
  uLong sum = crc32(0, nullptr, 0);
  for (const Snapshot& snapshot : log.snapshots()) {
    ProfInfo statistics = log.statistics(snapshot);
    sum = crc32(sum, reinterpret_cast<const Bytef*>(&snapshot.header), sizeof(snapshot.header));
    sum = crc32(sum, reinterpret_cast<const Bytef*>(&statistics), sizeof(statistics));
  }
  Maps maps = log.maps(log.snapshots().front());
  for (const Mapping& mapping : maps.all()) {
    sum = crc32(sum, reinterpret_cast<const Bytef*>(&mapping.start), sizeof(mapping.start));
  }
  const LogHeader& header = log.snapshots().front().header;
  return fmt::format("{}-{}-{}-{:08x}", log.process_name(), header.pid, log.file().size(), sum);
}

int64_t signed_of(uint64_t value) {
  return static_cast<int64_t>(value);
}

// Row ids of the records of what may be held: the last of a block's address; of mappings of the same bounds, of which
// several may be held, each.
class HeldRecords {
 public:
  void add(const OpRecord& record, int64_t row) {
    if (!is_mapping(record.operation)) {
      blocks_[record.start_addr] = row;
    } else {
      mappings_[bounds(record.start_addr, record.size)].push_back(row);
    }
  }
  // 0 when there is none.
  int64_t take(const LiveEntry& entry) {
    if (!is_mapping(entry)) return blocks_[entry.address];
    std::vector<int64_t>& rows = mappings_[bounds(entry.address, entry.size)];
    if (rows.empty()) return 0;
    int64_t row = rows.back();
    rows.pop_back();
    return row;
  }

 private:
  static uint64_t bounds(uint32_t address, uint32_t size) { return uint64_t{address} << 32 | size; }
  std::unordered_map<uint32_t, int64_t> blocks_;
  std::unordered_map<uint64_t, std::vector<int64_t>> mappings_;
};

const char* byte_order_of(const Log& log) {
  return log.snapshots().front().header.byte_order == kBigEndian ? "big" : "little";
}

}  // namespace

SqliteImport::SqliteImport(const std::string& database, Desk& desk) : database_(database), desk_(desk) {
  database_.run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON;");
  database_.run(kSqliteSchema);
  statements_ = std::make_unique<Statements>(database_);
  name_codes();
}

SqliteImport::~SqliteImport() = default;

void SqliteImport::name_codes() {
  for (int64_t code = 0; code < kOpCount; ++code)
    statements_->operation.run(code, std::string(operation_name(static_cast<int>(code))));
  for (int64_t code : {kKindAllocated, kKindReleased, kKindFailed, kKindSlopHead, kKindSlopTail}) {
    statements_->result.run(code, std::string(result_name(static_cast<int>(code))));
  }
}

void SqliteImport::add(const std::string& path, std::optional<LogKind> kind, std::vector<std::string>& notes) {
  Log log(path, kind);
  notes.insert(notes.end(), log.notes().begin(), log.notes().end());
  std::string digest = digest_of(log);
  if (statements_->process_of.find(0, digest) != 0) {
    notes.push_back(path + " is in the database already and is skipped.");
    return;
  }
  database_.run("BEGIN");
  try {
    std::string program = log.maps(log.snapshots().back()).program();
    statements_->process.run(path, std::string(name_of(log.kind())), log.process_name(),
                             int64_t{log.snapshots().front().header.pid}, program, std::string(byte_order_of(log)),
                             digest);
    add_snapshots(log, database_.last_id());
    database_.run("COMMIT");
  } catch (...) {
    sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

// Successive snapshots mostly have the same maps, and then share what was looked up.
void SqliteImport::add_snapshots(const Log& log, int64_t process) {
  std::unique_ptr<Symbolizer> symbolizer;
  for (const Snapshot& snapshot : log.snapshots()) {
    if (!symbolizer || !(symbolizer->maps() == log.maps(snapshot))) {
      symbolizer = std::make_unique<Symbolizer>(log, snapshot, desk_);
    }
    int64_t id = add_snapshot(snapshot, process);
    add_records(log, snapshot, *symbolizer, id);
  }
}

int64_t SqliteImport::add_snapshot(const Snapshot& snapshot, int64_t process) {
  constexpr int64_t kLater = 0;
  statements_->snapshot.run(process, int64_t{snapshot.header.snapshot_number}, int64_t{snapshot.header.time}, kLater,
                            kLater, kLater, kLater);
  return database_.last_id();
}

// The library counts the allocator's own mappings as the application's, too.
void SqliteImport::add_statistics(const Ledger& ledger, int64_t id) {
  for (int code = 0; code < kOpCount; ++code) {
    OperationTotals totals = ledger.totals(code);
    if (code == kOpMmap) totals += ledger.totals(kOpChunkMap);
    if (code == kOpMunmap) totals += ledger.totals(kOpChunkUnmap);
    statements_->statistics.run(id, int64_t{code}, signed_of(totals.calls), signed_of(totals.failed),
                                signed_of(totals.bytes));
  }
}

void SqliteImport::add_statistics(const ProfInfo& statistics, int64_t id) {
  for (int64_t code = 0; code < kOpCount; ++code) {
    statements_->statistics.run(id, code, int64_t{statistics.calls[code]}, int64_t{statistics.failed[code]},
                                signed_of(statistics.totals[code]));
  }
}

// As the records say where they are those of the whole run, else as the library counted, if it did.
void SqliteImport::sum_up(const Log& log, const Snapshot& snapshot, RecordPass& pass, int64_t id) {
  ProfInfo statistics = log.statistics(snapshot);
  bool in_order = log.kind() == LogKind::kRecords;
  const Held& held = pass.ledger().held();
  if (in_order && recorded_calls(statistics) < pass.ledger().calls()) {
    add_statistics(pass.ledger(), id);
  } else {
    add_statistics(statistics, id);
  }
  if (in_order || !has_counts(statistics)) {
    statements_->sum_up.run(signed_of(held.bytes), signed_of(held.peak), signed_of(held.file_bytes),
                            signed_of(held.file_peak), id);
  } else {
    statements_->sum_up.run(held_bytes(statistics), signed_of(known_peak(statistics.unfree_peak).value_or(0)),
                            held_file_bytes(statistics), signed_of(known_peak(statistics.unfree_file_peak).value_or(0)),
                            id);
  }
}

void SqliteImport::add_threads(const ThreadTallies& tallies, int64_t id) {
  for (const ThreadTally& thread : tallies.threads) {
    statements_->thread.run(id, int64_t{thread.tid}, thread.name, signed_of(thread.allocations),
                            signed_of(thread.releases), signed_of(thread.failures), signed_of(thread.allocated),
                            signed_of(thread.released), thread.held, signed_of(thread.peak.value_or(0)));
  }
}

void SqliteImport::add_records(const Log& log, const Snapshot& snapshot, Symbolizer& symbolizer, int64_t id) {
  TraceTable traces;
  std::vector<int64_t> trace_ids;
  HeldRecords held;
  auto add = [&](const OpRecord& record, const Ledger&) {
    TraceId known = traces.intern(trace_of(record));
    if (known == trace_ids.size()) trace_ids.push_back(trace(symbolizer, symbolizer.trace(traces.addresses(known))));
    statements_->record.run(id, int64_t{record.seq_num}, int64_t{record.tid}, int64_t{record.time},
                            int64_t{record.operation}, int64_t{record.result}, int64_t{record.from_file},
                            int64_t{record.size}, int64_t{record.start_addr}, trace_ids[known]);
    if (is_allocation(record)) held.add(record, database_.last_id());
  };
  RecordPass pass(log, snapshot, {.threads = true}, add);
  pass.ledger().for_each_held([&](const LiveEntry& entry) {
    if (int64_t record = held.take(entry); record != 0) statements_->hold.run(record);
  });
  sum_up(log, snapshot, pass, id);
  add_threads(pass.threads(), id);
}

int64_t SqliteImport::trace(Symbolizer& symbolizer, const Frames& frames) {
  std::vector<int64_t> ids;
  std::string signature;
  for (const Frame& each : frames) {
    ids.push_back(frame(symbolizer, each));
    signature += fmt::format("{} ", ids.back());
  }
  int64_t id = statements_->trace_of.find(0, signature);
  if (id == 0) id = add_trace(signature, ids);
  if (const DefaultRule* rule = default_rule_of(frames)) statements_->kept_trace.run(id, std::string(rule->name));
  return id;
}

int64_t SqliteImport::add_trace(const std::string& signature, const std::vector<int64_t>& ids) {
  statements_->trace.run(signature);
  const int64_t id = database_.last_id();
  for (size_t position = 0; position < ids.size(); ++position) {
    statements_->trace_frame.run(id, static_cast<int64_t>(position), ids[position]);
  }
  return id;
}

int64_t SqliteImport::frame(Symbolizer& symbolizer, const Frame& frame) {
  int64_t module_id = module(symbolizer, frame.module);
  auto offset = static_cast<int64_t>(frame.offset);
  int64_t line = frame.line, inlined = frame.inlined;
  int64_t known = statements_->frame_of.find(0, module_id, offset, frame.function, frame.file, line, inlined);
  if (known != 0) return known;
  statements_->frame.run(module_id, offset, frame.function, frame.file, line, inlined);
  return database_.last_id();
}

int64_t SqliteImport::module(Symbolizer& symbolizer, const std::string& path) {
  std::string name = path.empty() ? "(in no mapped file)" : path;
  std::string build_id = path.empty() ? "" : symbolizer.build_id(path);
  if (int64_t known = statements_->module_of.find(0, name, build_id)) return known;
  statements_->module.run(name, build_id);
  return database_.last_id();
}

}  // namespace quarl::report
