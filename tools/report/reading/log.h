// A log of any of the three kinds, opened and found sound.
#pragma once

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
  const std::vector<Snapshot>& snapshots() const { return snapshots_; }
  // What is missing or odd, one sentence each.
  const std::vector<std::string>& notes() const { return notes_; }

  std::string process_name() const;
  Maps maps(const Snapshot& snapshot) const;
  // All zero when the section is missing or the statistics were off.
  ProfInfo statistics(const Snapshot& snapshot) const;
  // The taken entries of the thread table; none when it was not written.
  std::vector<ThreadProf> threads(const Snapshot& snapshot) const;
  // The snapshot with that number, or null.
  const Snapshot* numbered(uint32_t number) const;

 private:
  LogHeader read_header(uint64_t offset) const;
  void check_header(const LogHeader& header, uint64_t offset) const;
  void read_chain();
  void note_lost_snapshots(uint32_t before, uint32_t number);
  LogKind kind_by_content() const;
  void count_records(Snapshot& snapshot, bool last);
  bool holds_releases(const Snapshot& snapshot) const;
  template <typename... Args>
  void note(const char* format, const Args&... args);

  LogFile file_;
  LogKind kind_ = LogKind::kSnapshot;
  bool swapped_ = false;
  std::vector<Snapshot> snapshots_;
  std::vector<std::string> notes_;
};

}  // namespace quarl::report
