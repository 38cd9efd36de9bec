// SPDX-License-Identifier: Apache-2.0
#include "report/reading/log.h"

#include <algorithm>
#include <cstring>

#include "report/reading/byte_order.h"
#include "report/reading/log_error.h"
#include "report/reading/record_stream.h"

namespace quarl::report {
namespace {

// The library's own limit is far lower; a damaged header must not make us allocate 4 GiB.
constexpr uint64_t kMaxMapsSection = 64 << 20;

uint64_t field_offset(uint64_t header, size_t field) {
  return header + field;
}

uint64_t stats_end(const LogHeader& header) {
  return uint64_t{header.stats_offset} + sizeof(ProfInfo);
}

bool has_thread_table(const Snapshot& snapshot) {
  return snapshot.header.threads_offset + kThreadTableSize <= snapshot.limit;
}

uint64_t whole_records(const Snapshot& snapshot) {
  uint64_t first = snapshot.header.records_offset;
  return snapshot.limit > first ? (snapshot.limit - first) / sizeof(OpRecord) : 0;
}

uint64_t released_calls(const ProfInfo& statistics) {
  uint64_t calls = 0;
  for (int operation : {kOpFree, kOpMunmap, kOpReallocRelease, kOpMunmapFile}) calls += statistics.calls[operation];
  return calls;
}

}  // namespace

const char* name_of(LogKind kind) {
  switch (kind) {
    case LogKind::kRecords:
      return "record log";
    case LogKind::kSnapshot:
      return "snapshot log";
    case LogKind::kSnapshotChain:
      return "automatic-snapshot log";
  }
  return "log";
}

template <typename... Args>
void Log::note(const char* format, const Args&... args) {
  notes_.push_back(fmt::format(fmt::runtime(format), args...));
}

template <typename... Args>
void Log::lose(const char* format, const Args&... args) {
  note(format, args...);
  losses_.push_back(notes_.back());
}

Log::Log(const std::string& path, std::optional<LogKind> kind) : file_(path) {
  read_chain();
  read_unlinked();
  kind_ = kind ? *kind : kind_by_content();
  for (Snapshot& snapshot : snapshots_) count_records(snapshot, &snapshot == &snapshots_.back());
  if (!unfinished_) return;
  unfinished_->records = whole_records(*unfinished_);
  lose("Snapshot {} was not finished: {} whole records of it are there, which \"@{}\" behind the path shows.",
       unfinished_->header.snapshot_number, unfinished_->records, unfinished_->header.snapshot_number);
}

LogHeader Log::read_header(uint64_t offset) const {
  LogHeader header = {};
  size_t got = file_.read_at(offset, &header, sizeof(header));
  if (got >= sizeof(header.magic) && memcmp(header.magic, kLogMagic, sizeof(header.magic)) != 0) {
    throw LogError(file_.path(), offset, "no log header: it does not begin with \"QRCL\"");
  }
  if (got < sizeof(header)) {
    throw LogError(file_.path(), offset, fmt::format("a header of 88 bytes was expected, {} are there", got));
  }
  if (header.byte_order != kBigEndian && header.byte_order != kLittleEndian) {
    throw LogError(file_.path(), field_offset(offset, offsetof(LogHeader, byte_order)),
                   fmt::format("byte order {} is neither 1 (big-endian) nor 2 (little-endian)", header.byte_order));
  }
  if (needs_swap(header.byte_order)) swap_bytes(header);
  check_header(header, offset);
  return header;
}

void Log::check_header(const LogHeader& header, uint64_t offset) const {
  auto require = [&](bool sound, size_t field, const char* name, uint32_t value) {
    if (!sound) {
      throw LogError(file_.path(), field_offset(offset, field), fmt::format("{} {} cannot be", name, value));
    }
  };
  require(header.thread_slots == kThreadSlots, offsetof(LogHeader, thread_slots), "thread table size",
          header.thread_slots);
  require(header.trace_depth == kMaxTrace, offsetof(LogHeader, trace_depth), "trace depth", header.trace_depth);
  require(header.maps_offset == offset + sizeof(LogHeader), offsetof(LogHeader, maps_offset), "maps offset",
          header.maps_offset);
  require(header.stats_offset >= header.maps_offset, offsetof(LogHeader, stats_offset), "statistics offset",
          header.stats_offset);
  require(header.threads_offset == stats_end(header), offsetof(LogHeader, threads_offset), "threads offset",
          header.threads_offset);
  require(header.records_offset == header.threads_offset + kThreadTableSize, offsetof(LogHeader, records_offset),
          "records offset", header.records_offset);
}

// Every link must lead forward, behind the sections it leaves, so that a damaged chain ends.
void Log::read_chain() {
  uint64_t offset = 0;
  for (;;) {
    Snapshot snapshot;
    snapshot.header = read_header(offset);
    snapshot.start = offset;
    snapshot.limit = file_.size();
    if (offset == 0) swapped_ = needs_swap(snapshot.header.byte_order);
    uint64_t next = snapshot.header.next_snapshot;
    if (next != 0 && next < stats_end(snapshot.header)) {
      throw LogError(file_.path(), field_offset(offset, offsetof(LogHeader, next_snapshot)),
                     fmt::format("the next snapshot at {} does not lie behind this one", next));
    }
    bool missing = next != 0 && next + sizeof(LogHeader) > file_.size();
    if (next != 0 && !missing) snapshot.limit = next;
    note_lost_snapshots(snapshots_.empty() ? 0 : snapshots_.back().header.snapshot_number,
                        snapshot.header.snapshot_number);
    snapshots_.push_back(snapshot);
    if (missing)
      lose("The file ends at {} bytes, before the snapshot at {}: later snapshots are missing.", file_.size(), next);
    if (next == 0 || missing) return;
    offset = next;
  }
}

// A snapshot is linked when it is whole. One that its process was killed in lies behind the last that is linked, whose
// records, or statistics, end there.
void Log::read_unlinked() {
  Snapshot& last = snapshots_.back();
  if (last.limit != file_.size()) return;
  uint64_t records_end = last.header.records_offset + uint64_t{last.header.record_count} * sizeof(OpRecord);
  for (uint64_t offset : {records_end, stats_end(last.header)}) {
    if (!begins_at(offset)) continue;
    last.limit = offset;
    unfinished_ = {.header = read_header(offset), .start = offset, .limit = file_.size()};
    return;
  }
}

bool Log::begins_at(uint64_t offset) const {
  LogHeader header = {};
  if (file_.read_at(offset, &header, sizeof(header)) < sizeof(header)) return false;
  if (swapped_) swap_bytes(header);
  return memcmp(header.magic, kLogMagic, sizeof(header.magic)) == 0 && header.maps_offset == offset + sizeof(header) &&
         header.snapshot_number > snapshots_.back().header.snapshot_number;
}

void Log::note_lost_snapshots(uint32_t before, uint32_t number) {
  if (number <= before || number - before == 1) return;
  note("{} snapshots before snapshot {} are missing: they could not be written.", number - before - 1, number);
}

// A header without a record count is that of a record log, of a snapshot of nothing, or of a log whose process was
// killed before it could say. Only a record log holds releases and failures. If the statistics count some and the
// records have none, these are what an earlier snapshot left behind.
LogKind Log::kind_by_content() const {
  const Snapshot& first = snapshots_.front();
  auto named = [&](const char* ending) { return file_.path().ends_with(ending); };
  bool without_table = file_.size() == stats_end(first.header);
  if (first.header.next_snapshot != 0 || unfinished_ || without_table || named("_autosnap.log"))
    return LogKind::kSnapshotChain;
  if (first.header.record_count != 0) return LogKind::kSnapshot;
  if (named("_quarlAll.log")) return LogKind::kRecords;
  if (named("_quarl.log") || whole_records(first) == 0) return LogKind::kSnapshot;
  bool earlier = released_calls(statistics(first)) != 0 && !holds(first, 0, {kKindReleased, kKindFailed});
  return earlier ? LogKind::kSnapshot : LogKind::kRecords;
}

// Whether one of the records from the one with that index on is of these kinds.
bool Log::holds(const Snapshot& snapshot, uint64_t from, std::initializer_list<RecordKind> kinds) const {
  uint64_t there = whole_records(snapshot);
  RecordStream stream(*this, snapshot.header.records_offset + from * sizeof(OpRecord), there - std::min(from, there));
  for (auto batch = stream.next(); !batch.empty(); batch = stream.next()) {
    for (const OpRecord& record : batch) {
      if (std::find(kinds.begin(), kinds.end(), record.result) != kinds.end()) return true;
    }
  }
  return false;
}

void Log::count_records(Snapshot& snapshot, bool last) {
  if (snapshot.limit < snapshot.header.stats_offset + sizeof(ProfInfo)) {
    lose("Cut short at {} bytes: the statistics of snapshot {} are missing.", snapshot.limit,
         snapshot.header.snapshot_number);
  }
  switch (kind_) {
    case LogKind::kRecords:
      return count_of_record_log(snapshot);
    case LogKind::kSnapshotChain:
      return count_of_chain(snapshot, last);
    case LogKind::kSnapshot:
      return count_of_snapshot(snapshot);
  }
}

void Log::note_part_of_record(const Snapshot& snapshot) {
  if (snapshot.limit <= snapshot.header.records_offset) return;
  uint64_t rest = (snapshot.limit - snapshot.header.records_offset) % sizeof(OpRecord);
  if (rest != 0) lose("Cut short: the last record has {} of its 280 bytes and is left out.", rest);
}

void Log::count_of_record_log(Snapshot& snapshot) {
  snapshot.records = whole_records(snapshot);
  note_part_of_record(snapshot);
  if (snapshot.header.time == 0)
    lose(
        "The process did not write its log at exit: it was killed or still runs, so the last records and the "
        "statistics are missing.");
}

void Log::count_of_chain(Snapshot& snapshot, bool last) {
  uint64_t there = whole_records(snapshot);
  uint64_t counted = snapshot.header.record_count;
  bool unfinished = last && counted == 0 && there != 0;
  snapshot.records = unfinished ? there : std::min(there, counted);
  if (unfinished) lose("The last snapshot was not finished: {} whole records of it are there.", there);
  note_missing_records(snapshot, there);
}

void Log::note_missing_records(const Snapshot& snapshot, uint64_t there) {
  if (snapshot.header.record_count <= there) return;
  lose("Cut short: snapshot {} counts {} records, {} whole ones are there.", snapshot.header.snapshot_number,
       snapshot.header.record_count, there);
}

// A dump begins by cutting off the records of the one before, and ends by writing their number: what is held behind
// those that are counted was written by a dump that did not end. Faults are told behind the last dump.
void Log::count_of_snapshot(Snapshot& snapshot) {
  uint64_t there = whole_records(snapshot);
  snapshot.records = std::min<uint64_t>(there, snapshot.header.record_count);
  note_part_of_record(snapshot);
  note_missing_records(snapshot, there);
  if (holds(snapshot, snapshot.records, {kKindAllocated})) {
    lose(
        "The header was not written after the last dump, which the process was killed in or still writes: it counts {} "
        "records, {} whole ones are there.",
        snapshot.records, there);
    snapshot.records = there;
  } else if (snapshot.header.time == 0) {
    lose("No snapshot was written: the process was killed or still runs.");
  } else if (there > snapshot.records) {
    lose("The process went on after the last dump, and did not write its log at exit: it was killed or still runs.");
  }
  snapshot.uncounted = there - snapshot.records;
}

std::string Log::process_name() const {
  const char* name = snapshots_.front().header.proc_name;
  return std::string(name, strnlen(name, sizeof(LogHeader::proc_name)));
}

Maps Log::maps(const Snapshot& snapshot) const {
  uint64_t bytes = std::min<uint64_t>(snapshot.header.stats_offset - snapshot.header.maps_offset, kMaxMapsSection);
  uint64_t there = file_.size() > snapshot.header.maps_offset ? file_.size() - snapshot.header.maps_offset : 0;
  std::string text(static_cast<size_t>(std::min(bytes, there)), '\0');
  text.resize(file_.read_at(snapshot.header.maps_offset, text.data(), text.size()));
  return Maps::parse(text);
}

ProfInfo Log::statistics(const Snapshot& snapshot) const {
  ProfInfo statistics = {};
  size_t got = file_.read_at(snapshot.header.stats_offset, &statistics, sizeof(statistics));
  if (got < sizeof(statistics)) return {};
  if (swapped_) swap_bytes(statistics);
  return statistics;
}

std::vector<ThreadProf> Log::threads(const Snapshot& snapshot) const {
  if (!has_thread_table(snapshot)) return {};
  std::vector<ThreadProf> threads(kThreadSlots);
  size_t got = file_.read_at(snapshot.header.threads_offset, threads.data(), kThreadTableSize);
  threads.resize(got / sizeof(ThreadProf));
  if (swapped_) std::for_each(threads.begin(), threads.end(), [](ThreadProf& thread) { swap_bytes(thread); });
  std::erase_if(threads, [](const ThreadProf& thread) { return thread.tid == 0; });
  return threads;
}

const Snapshot* Log::numbered(uint32_t number) const {
  auto found = std::find_if(snapshots_.begin(), snapshots_.end(),
                            [&](const Snapshot& snapshot) { return snapshot.header.snapshot_number == number; });
  if (found != snapshots_.end()) return &*found;
  return unfinished_ && unfinished_->header.snapshot_number == number ? &*unfinished_ : nullptr;
}

}  // namespace quarl::report
