// SPDX-License-Identifier: Apache-2.0
// The tables of the database that `--format sqlite` appends to. docs/report.md describes them and queries them.
#pragma once

namespace quarl::report {

inline constexpr char kSqliteSchema[] = R"sql(
CREATE TABLE IF NOT EXISTS operations (code INTEGER PRIMARY KEY, name TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS results (code INTEGER PRIMARY KEY, name TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS processes (
  id INTEGER PRIMARY KEY,
  file TEXT NOT NULL,
  kind TEXT NOT NULL,
  name TEXT,
  pid INTEGER NOT NULL,
  program TEXT,
  byte_order TEXT NOT NULL,
  digest TEXT NOT NULL UNIQUE
);
CREATE TABLE IF NOT EXISTS snapshots (
  id INTEGER PRIMARY KEY,
  process_id INTEGER NOT NULL REFERENCES processes (id),
  number INTEGER NOT NULL,
  time INTEGER NOT NULL,
  bytes INTEGER NOT NULL,
  peak INTEGER NOT NULL,
  file_bytes INTEGER NOT NULL,
  file_peak INTEGER NOT NULL,
  UNIQUE (process_id, number)
);
CREATE TABLE IF NOT EXISTS statistics (
  snapshot_id INTEGER NOT NULL REFERENCES snapshots (id),
  operation INTEGER NOT NULL REFERENCES operations (code),
  calls INTEGER NOT NULL,
  failed INTEGER NOT NULL,
  bytes INTEGER NOT NULL,
  PRIMARY KEY (snapshot_id, operation)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS threads (
  snapshot_id INTEGER NOT NULL REFERENCES snapshots (id),
  tid INTEGER NOT NULL,
  name TEXT,
  allocations INTEGER NOT NULL,
  releases INTEGER NOT NULL,
  failures INTEGER NOT NULL,
  bytes_allocated INTEGER NOT NULL,
  bytes_released INTEGER NOT NULL,
  bytes_held INTEGER NOT NULL,
  peak INTEGER NOT NULL,
  PRIMARY KEY (snapshot_id, tid)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS modules (id INTEGER PRIMARY KEY, path TEXT NOT NULL, build_id TEXT NOT NULL, UNIQUE (path, build_id));
CREATE TABLE IF NOT EXISTS frames (
  id INTEGER PRIMARY KEY,
  module_id INTEGER NOT NULL REFERENCES modules (id),
  "offset" INTEGER NOT NULL,
  function TEXT NOT NULL,
  file TEXT NOT NULL,
  line INTEGER NOT NULL,
  inlined INTEGER NOT NULL,
  UNIQUE (module_id, "offset", function, file, line, inlined)
);
CREATE TABLE IF NOT EXISTS traces (id INTEGER PRIMARY KEY, signature TEXT NOT NULL UNIQUE);
CREATE TABLE IF NOT EXISTS trace_frames (
  trace_id INTEGER NOT NULL REFERENCES traces (id),
  position INTEGER NOT NULL,
  frame_id INTEGER NOT NULL REFERENCES frames (id),
  PRIMARY KEY (trace_id, position)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS kept_traces (
  trace_id INTEGER PRIMARY KEY REFERENCES traces (id),
  rule TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS records (
  id INTEGER PRIMARY KEY,
  snapshot_id INTEGER NOT NULL REFERENCES snapshots (id),
  sequence INTEGER NOT NULL,
  tid INTEGER NOT NULL,
  time INTEGER NOT NULL,
  operation INTEGER NOT NULL REFERENCES operations (code),
  result INTEGER NOT NULL REFERENCES results (code),
  from_file INTEGER NOT NULL,
  size INTEGER NOT NULL,
  address INTEGER NOT NULL,
  trace_id INTEGER NOT NULL REFERENCES traces (id),
  held INTEGER NOT NULL
);
CREATE INDEX IF NOT EXISTS records_held ON records (snapshot_id) WHERE held = 1;
)sql";

}  // namespace quarl::report
