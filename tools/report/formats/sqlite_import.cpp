#include "report/formats/sqlite_import.h"

#include <fmt/format.h>
#include <zlib.h>

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
        trace_frame(database, "INSERT INTO trace_frames VALUES (?, ?, ?)"),
        record(database, "INSERT INTO records VALUES (NULL, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0)"),
        hold(database, "UPDATE records SET held = 1 WHERE id = ?") {}

  Statement operation, result, process_of, process, snapshot, statistics, thread, module_of, module, frame_of, frame,
      trace_of, trace, trace_frame, record, hold;
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
    int64_t id = add_snapshot(log, snapshot, process);
    add_records(log, snapshot, *symbolizer, id);
  }
}

int64_t SqliteImport::add_snapshot(const Log& log, const Snapshot& snapshot, int64_t process) {
  ProfInfo statistics = log.statistics(snapshot);
  statements_->snapshot.run(process, int64_t{snapshot.header.snapshot_number}, int64_t{snapshot.header.time},
                            int64_t{statistics.unfree_size}, int64_t{statistics.unfree_peak},
                            int64_t{statistics.unfree_file_size}, int64_t{statistics.unfree_file_peak});
  int64_t id = database_.last_id();
  for (int64_t code = 0; code < kOpCount; ++code) {
    statements_->statistics.run(id, code, int64_t{statistics.calls[code]}, int64_t{statistics.failed[code]},
                                static_cast<int64_t>(statistics.totals[code]));
  }
  return id;
}

void SqliteImport::add_threads(const ThreadTallies& tallies, int64_t id) {
  for (const ThreadTally& thread : tallies.threads) {
    auto number = [](uint64_t value) { return static_cast<int64_t>(value); };
    statements_->thread.run(id, int64_t{thread.tid}, thread.name, number(thread.allocations), number(thread.releases),
                            number(thread.failures), number(thread.allocated), number(thread.released),
                            number(thread.held), number(thread.peak));
  }
}

void SqliteImport::add_records(const Log& log, const Snapshot& snapshot, Symbolizer& symbolizer, int64_t id) {
  TraceTable traces;
  std::vector<int64_t> trace_ids;
  std::unordered_map<uint32_t, int64_t> allocations;  // record ids of what is held, by address
  auto add = [&](const OpRecord& record, const Ledger&) {
    TraceId known = traces.intern(trace_of(record));
    if (known == trace_ids.size()) trace_ids.push_back(trace(symbolizer, symbolizer.trace(traces.addresses(known))));
    statements_->record.run(id, int64_t{record.seq_num}, int64_t{record.tid}, int64_t{record.time},
                            int64_t{record.operation}, int64_t{record.result}, int64_t{record.from_file},
                            int64_t{record.size}, int64_t{record.start_addr}, trace_ids[known]);
    if (is_allocation(record)) allocations[record.start_addr] = database_.last_id();
    // Unmapping the front of a mapping leaves it held.
    if (record.result == kKindReleased && record.operation != kOpMunmap) allocations.erase(record.start_addr);
  };
  RecordPass pass(log, snapshot, {.threads = true}, add);
  pass.ledger().for_each_held([&](const LiveEntry& entry) {
    if (auto found = allocations.find(entry.address); found != allocations.end()) statements_->hold.run(found->second);
  });
  add_threads(pass.threads(), id);
}

int64_t SqliteImport::trace(Symbolizer& symbolizer, const Frames& frames) {
  std::vector<int64_t> ids;
  std::string signature;
  for (const Frame& each : frames) {
    ids.push_back(frame(symbolizer, each));
    signature += fmt::format("{} ", ids.back());
  }
  if (int64_t known = statements_->trace_of.find(0, signature)) return known;
  statements_->trace.run(signature);
  int64_t id = database_.last_id();
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
