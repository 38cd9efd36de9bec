// SPDX-License-Identifier: Apache-2.0
// A log of any of the three kinds, opened and found sound.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "report/reading/log_file.h"
#include "report/reading/maps.h"
#include "report/reading/snapshot.h"

namespace quarl::report {

enum class LogKind {
  kRecords,        // one record per operation of the whole run
  kSnapshot,       // what was held at one moment
  kSnapshotChain,  // snapshots taken periodically
};

// "record log", "snapshot log" or "automatic-snapshot log".
const char* name_of(LogKind kind);

class Log {
 public:
  // Reads the headers of `path`; the sections are read when they are asked for. Throws LogError when the file is no log
  // or a header is damaged; what is merely missing (a log that was cut short) is said in notes(). `kind` overrides what
  // the content says.
  explicit Log(const std::string& path, std::optional<LogKind> kind = std::nullopt);

  const LogFile& file() const { return file_; }
  LogKind kind() const { return kind_; }
  bool swapped() const { return swapped_; }
  // Those that are whole; or the only one, as far as it is there.
  const std::vector<Snapshot>& snapshots() const { return snapshots_; }
  // What is missing or odd, one sentence each; and of these what keeps the log from being whole: one that was cut, of a
  // process that was killed, or that is still written.
  const std::vector<std::string>& notes() const { return notes_; }
  const std::vector<std::string>& losses() const { return losses_; }

  std::string process_name() const;
  Maps maps(const Snapshot& snapshot) const;
  // All zero when the section is missing or the statistics were off.
  ProfInfo statistics(const Snapshot& snapshot) const;
  // The taken entries of the thread table; none when it was not written.
  std::vector<ThreadProf> threads(const Snapshot& snapshot) const;
  // The snapshot with that number, which may be one that was not finished, or null.
  const Snapshot* numbered(uint32_t number) const;

 private:
  LogHeader read_header(uint64_t offset) const;
  void check_header(const LogHeader& header, uint64_t offset) const;
  void read_chain();
  void read_unlinked();
  bool begins_at(uint64_t offset) const;
  void note_lost_snapshots(uint32_t before, uint32_t number);
  LogKind kind_by_content() const;
  void count_records(Snapshot& snapshot, bool last);
  void note_part_of_record(const Snapshot& snapshot);
  void note_missing_records(const Snapshot& snapshot, uint64_t there);
  void count_of_record_log(Snapshot& snapshot);
  void count_of_chain(Snapshot& snapshot, bool last);
  void count_of_snapshot(Snapshot& snapshot);
  bool holds(const Snapshot& snapshot, uint64_t from, std::initializer_list<RecordKind> kinds) const;
  template <typename... Args>
  void lose(const char* format, const Args&... args);
  template <typename... Args>
  void note(const char* format, const Args&... args);

  LogFile file_;
  LogKind kind_ = LogKind::kSnapshot;
  bool swapped_ = false;
  std::vector<Snapshot> snapshots_;
  std::optional<Snapshot> unfinished_;  // behind the others, without a link to it
  std::vector<std::string> notes_;
  std::vector<std::string> losses_;
};

}  // namespace quarl::report
