#include "report/analysis/subject.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "report/reading/log_error.h"

namespace quarl::report {
namespace {

struct Argument {
  std::string path;
  std::optional<uint32_t> number;
};

Argument parse_argument(const std::string& text) {
  size_t at = text.rfind('@');
  if (at == std::string::npos || std::filesystem::exists(text)) return {text, std::nullopt};
  uint32_t number = 0;
  const char* end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data() + at + 1, end, number);
  if (error != std::errc() || stop != end) return {text, std::nullopt};
  return {text.substr(0, at), number};
}

const Snapshot* choose(const Log& log, std::optional<uint32_t> number) {
  if (!number) return &log.snapshots().back();
  if (const Snapshot* found = log.numbered(*number)) return found;
  throw LogError(
      log.file().path(), 0,
      fmt::format("there is no snapshot {}; the log holds {}, numbered {} to {}", *number, log.snapshots().size(),
                  log.snapshots().front().header.snapshot_number, log.snapshots().back().header.snapshot_number));
}

}  // namespace

Subject::Subject(const std::string& argument, std::optional<LogKind> kind, Desk& desk)
    : log_(parse_argument(argument).path, kind),
      snapshot_(choose(log_, parse_argument(argument).number)),
      symbolizer_(log_.maps(*snapshot_), desk) {}

const LedgerResult& Subject::result() {
  if (!result_) result_ = read_ledger(log_, *snapshot_);
  return *result_;
}

std::vector<std::string> Subject::notes() {
  std::vector<std::string> notes = log_.notes();
  auto add = [&](uint64_t count, const char* text) {
    if (count != 0) notes.push_back(fmt::format("{} {}", count, text));
  };
  add(result().damaged, "damaged records were left out.");
  if (log_.kind() == LogKind::kRecords) {
    add(ledger().lost_releases(), "blocks were given out again although no release of them is in the log.");
  }
  compare_with_statistics(notes);
  if (symbolizer_.maps().all().empty()) notes.push_back("The log holds no memory map: addresses cannot be resolved.");
  return notes;
}

std::string Subject::label() const {
  const std::string& path = log_.file().path();
  return log_.snapshots().size() == 1 ? path : fmt::format("{}@{}", path, snapshot_->header.snapshot_number);
}

// Where the two differ the reader must know which one an answer rests on.
void Subject::compare_with_statistics(std::vector<std::string>& notes) {
  ProfInfo counts = statistics();
  uint64_t counted = counts.unfree_size;
  uint64_t recorded = ledger().held().bytes;
  if (!has_counts(counts) || snapshot_->header.time == 0 || counted == (recorded & UINT32_MAX)) return;
  if (result().records == 0) {
    notes.push_back(
        fmt::format("{} bytes are held, but this snapshot has no records of them (QUARL_SNAP_DETAIL).", counted));
  } else {
    notes.push_back(fmt::format("The library counted {} bytes held, the records add up to {}.", counted, recorded));
  }
}

}  // namespace quarl::report
