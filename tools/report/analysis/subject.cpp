// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/subject.h"

#include <fmt/format.h>

#include <algorithm>

#include "report/analysis/chosen_timeline.h"

namespace quarl::report {

Subject::Subject(std::shared_ptr<const Log> log, const Snapshot& snapshot, Desk& desk, const Suppressions& suppressions,
                 const Selection& selection, Wanted wanted)
    : log_(std::move(log)),
      snapshot_(snapshot),
      desk_(desk),
      suppressions_(suppressions),
      selection_(selection),
      wanted_(wanted) {}

const ProfInfo& Subject::statistics() {
  if (!statistics_) statistics_ = log_->statistics(snapshot_);
  return *statistics_;
}

// The statistics of a process that was killed are those of its last dump, while its records went on.
const ProfInfo* Subject::counted() {
  if (!has_counts(statistics())) return nullptr;
  bool stale = log_->kind() == LogKind::kRecords && recorded_calls(statistics()) < ledger().calls();
  return stale ? nullptr : &statistics();
}

Symbolizer& Subject::symbolizer() {
  if (!symbolizer_) symbolizer_.emplace(*log_, snapshot_, desk_);
  return *symbolizer_;
}

RecordPass& Subject::pass() {
  if (!pass_) pass_.emplace(*log_, snapshot_, wanted_);
  return *pass_;
}

const SiteTable& Subject::sites(Grouping grouping) {
  auto known = sites_.find(grouping);
  if (known != sites_.end()) return known->second;
  pass().ledger();
  return sites_.emplace(grouping, sites_now(grouping)).first->second;
}

SiteTable Subject::sites_now(Grouping grouping) {
  const Ledger& ledger = pass().filling();
  SiteTable sites(ledger.traces(), symbolizer(), grouping);
  ledger.for_each_held([&](const LiveEntry& entry) {
    if (!chooser().takes(entry, ledger.traces())) return;
    const Hiding hiding = hiding_of(entry.trace);
    hiding == Hiding::kNone ? sites.add(entry) : sites.leave_out(entry, hiding);
  });
  sites.finish();
  return sites;
}

ProfileSamples Subject::profile() {
  AllocationSamples allocations(chooser(), pass().filling());
  pass().watch(allocations);
  ledger();
  ProfileSamples samples;
  if (log_->kind() == LogKind::kRecords) samples = allocations.take();
  for_each_unfreed([&](const LiveEntry& entry) { samples[{entry.trace, entry.tid}].in_use += {entry.size, 1}; });
  return samples;
}

Hiding Subject::hiding_of(TraceId trace) {
  if (suppressions_.empty()) return Hiding::kNone;
  const TraceTable& traces = pass().filling().traces();
  if (trace >= hidings_.size()) hidings_.resize(traces.size());
  std::optional<Hiding>& known = hidings_[trace];
  if (!known) known = suppressions_.hiding_of(symbolizer().trace(traces.addresses(trace)));
  return *known;
}

SiteTable Subject::table(Grouping grouping, Order order, const std::function<void(SiteTable&)>& fill) {
  SiteTable table(ledger().traces(), symbolizer(), grouping);
  fill(table);
  table.finish(order);
  return table;
}

Chooser& Subject::chooser() {
  if (!chooser_) chooser_.emplace(selection_, symbolizer(), selection_.asks_for_age() ? pass().now() : 0);
  return *chooser_;
}

void Subject::for_each_held(const std::function<void(const LiveEntry&)>& visit) {
  ledger().for_each_held([&](const LiveEntry& entry) {
    if (chooser().takes(entry, ledger().traces())) visit(entry);
  });
}

void Subject::for_each_unfreed(const std::function<void(const LiveEntry&)>& visit) {
  for_each_held([&](const LiveEntry& entry) {
    if (hiding_of(entry.trace) == Hiding::kNone) visit(entry);
  });
}

Timeline Subject::timeline(const Visit& visit, Subject* known) {
  bool records = log_->kind() == LogKind::kRecords;
  Timeline timeline;
  for_each_snapshot(known, [&](Subject& each) {
    if (!records) timeline.points.push_back(each.point());
    if (visit) visit(each);
  });
  limit_peaks(timeline.points);
  if (records) timeline = pass().timeline();
  add_resident_to(timeline);
  return timeline;
}

Timeline Subject::chosen_timeline() {
  if (log_->kind() == LogKind::kRecords) {
    ChosenTimeline chosen(chooser(), pass().filling());
    pass().watch(chosen);
    ledger();
    return chosen.finish();
  }
  Timeline timeline;
  for_each_snapshot(nullptr, [&](Subject& each) { timeline.points.push_back(each.chosen_point()); });
  limit_peaks(timeline.points);
  return timeline;
}

std::vector<ResidentEvent> Subject::resident_events() const {
  return read_resident_events(desk_.events_of(log_->file().path()), *log_, snapshot_.header.pid);
}

// A chain has a point for each snapshot.
void Subject::add_resident_to(Timeline& timeline) const {
  std::vector<ResidentEvent> events = resident_events();
  if (log_->kind() == LogKind::kRecords) return add_resident(timeline, events);
  std::vector<std::optional<uint64_t>> found = resident_at(log_->snapshots(), events);
  for (size_t index = 0; index < found.size(); ++index) timeline.points[index].resident = found[index];
}

std::optional<uint64_t> Subject::resident() {
  std::vector<std::optional<uint64_t>> found = resident_at(log_->snapshots(), resident_events());
  for (size_t index = 0; index < found.size(); ++index) {
    if (&log_->snapshots()[index] == &snapshot_) return found[index];
  }
  return std::nullopt;
}

void Subject::for_each_snapshot(Subject* known, const Visit& visit) {
  for (const Snapshot& snapshot : log_->snapshots()) {
    if (&snapshot == &snapshot_) {
      visit(*this);
    } else if (known != nullptr && &snapshot == &known->snapshot_) {
      visit(*known);
    } else {
      Subject passing(log_, snapshot, desk_, suppressions_, selection_);
      visit(passing);
    }
  }
}

TimePoint Subject::point() {
  return snapshot_point(snapshot_, statistics(), snapshot_.records == 0 ? nullptr : &ledger().held());
}

TimePoint Subject::chosen_point() {
  Held held;
  for_each_held([&](const LiveEntry& entry) { hold(held, entry); });
  return snapshot_point(snapshot_, {}, &held);
}

void Subject::choose_faults() {
  if (selection_.empty()) return;
  pass().choose_faults([this](const OpRecord& record) {
    return chooser().takes(record.tid, record.size, record.time, trace_of(record));
  });
}

std::vector<std::string> Subject::notes() {
  std::vector<std::string> notes = log_->notes();
  add_own_losses(notes);
  if (uint64_t unknown = ledger().unknown_releases(); unknown != 0 && log_->kind() == LogKind::kRecords) {
    notes.push_back(fmt::format("{} releases are of blocks whose allocation is not in the log.", unknown));
  }
  compare_with_statistics(notes);
  if (symbolizer().maps().all().empty()) notes.push_back("The log holds no memory map: addresses cannot be resolved.");
  return notes;
}

std::vector<std::string> Subject::losses() {
  std::vector<std::string> losses = log_->losses();
  add_own_losses(losses);
  return losses;
}

void Subject::add_own_losses(std::vector<std::string>& notes) {
  auto add = [&](uint64_t count, const char* text) {
    if (count != 0) notes.push_back(fmt::format("{} {}", count, text));
  };
  add(pass().damaged(), "damaged records were left out.");
  if (log_->kind() == LogKind::kRecords) {
    add(pass().missing(), "records are missing in between: they could not be written, or the log was off.");
    uint32_t first = pass().first_number();
    add(first != 0 ? first - 1 : 0, "operations came before the first record: the log was begun after them.");
    add(ledger().lost_releases(), "blocks were given out again although no release of them is in the log.");
    if (snapshot_.header.time != 0 && has_counts(statistics()) && counted() == nullptr) {
      notes.push_back(
          "The process went on after its last dump and did not write its log at exit: it was killed or still runs, so "
          "the last records are missing. The library's statistics are those of the dump and are left out.");
    }
    return;
  }
  if (ledger().faults().any_at_head()) {
    notes.push_back("The listing of blocks ends at a block with an overrun at its head: later ones are missing.");
  }
  if (const ProfInfo* statistics = counted(); statistics != nullptr && pass().records() == 0) {
    if (int64_t held = held_bytes(*statistics); held != 0) {
      notes.push_back(fmt::format("{} bytes are held, but this snapshot has no records of them ({}).", held,
                                  log_->kind() == LogKind::kSnapshot ? "QUARL_MMAP is off, or they could not be written"
                                                                     : "QUARL_SNAP_DETAIL"));
    }
  }
}

std::string Subject::label() const {
  const std::string& path = log_->file().path();
  return log_->snapshots().size() == 1 ? path : fmt::format("{}@{}", path, snapshot_.header.snapshot_number);
}

// Where the two differ the reader must know which one an answer rests on.
void Subject::compare_with_statistics(std::vector<std::string>& notes) {
  const ProfInfo* statistics = counted();
  if (statistics == nullptr || snapshot_.header.time == 0) return;
  int64_t counted = held_bytes(*statistics);
  auto recorded = static_cast<int64_t>(ledger().held().bytes);
  bool without_records = pass().records() == 0 && log_->kind() != LogKind::kRecords;  // a loss, told already
  if (counted == recorded || without_records) return;
  notes.push_back(fmt::format("The library counted {} bytes held, the records add up to {}.", counted, recorded));
}

}  // namespace quarl::report
