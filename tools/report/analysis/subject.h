// SPDX-License-Identifier: Apache-2.0
// One snapshot of a log that is asked about, and everything needed to answer from it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "report/analysis/profile_samples.h"
#include "report/analysis/record_pass.h"
#include "report/analysis/selection.h"
#include "report/analysis/site_table.h"
#include "report/analysis/statistics.h"
#include "report/symbols/symbolizer.h"

namespace quarl::report {

class Subject {
 public:
  // `snapshot` lies in `log`; the others must outlive the subject. Nothing is read before it is asked for, and then
  // once.
  Subject(std::shared_ptr<const Log> log, const Snapshot& snapshot, Desk& desk, const Suppressions& suppressions,
          const Selection& selection, Wanted wanted = {});

  const Log& log() const { return *log_; }
  const Snapshot& snapshot() const { return snapshot_; }
  const ProfInfo& statistics();
  // The statistics, if the library counted at all and they are no older than the records; else null.
  const ProfInfo* counted();
  Symbolizer& symbolizer();
  RecordPass& pass();
  const Ledger& ledger() { return pass().ledger(); }
  // Has the ledger list only faults of selected blocks; before anything is asked.
  void choose_faults();
  // The selection, put at the moment up to which the log is read.
  Chooser& chooser();
  Chooser chooser_at(uint32_t now) { return {selection_, symbolizer(), now}; }
  // Visits what is held and selected.
  void for_each_held(const std::function<void(const LiveEntry&)>& visit);
  // Of that, visits what is unfreed: without what is suppressed.
  void for_each_unfreed(const std::function<void(const LiveEntry&)>& visit);
  // What is unfreed.
  const SiteTable& sites(Grouping grouping = Grouping::kTrace);
  // The same at this moment, of a watcher that is told while the log is read.
  SiteTable sites_now(Grouping grouping);
  // What is unfreed, and, of a record log that nothing was asked of yet, all that was ever
  // allocated and is selected, by trace and thread.
  ProfileSamples profile();
  // Of whatever `fill` adds to it, with nothing suppressed.
  SiteTable table(Grouping grouping, Order order, const std::function<void(SiteTable&)>& fill);

  using Visit = std::function<void(Subject&)>;
  // The timeline of the whole log. `visit`, if there is one, sees the subject of every snapshot while it is there;
  // where that is this one or `known` they are taken, so that nothing is read again.
  Timeline timeline(const Visit& visit = nullptr, Subject* known = nullptr);
  // The same of what is selected alone. A snapshot has no peak of that: the most that is known since the point before
  // are the two points themselves. Resident memory is the whole process's and is left out.
  Timeline chosen_timeline();
  // Bytes of the process that lay in memory when this snapshot, or what a record log holds at its last dump, had been
  // written; nothing when no event tells.
  std::optional<uint64_t> resident();
  // The log's notes and what reading the records added to them.
  std::vector<std::string> notes();
  // Of these what keeps the records from being all that should be there: nothing can be said of what is missing.
  std::vector<std::string> losses();
  // "sample_101_quarl.log@3", the "@3" only where the log has several snapshots.
  std::string label() const;

 private:
  void for_each_snapshot(Subject* known, const Visit& visit);
  TimePoint point();
  TimePoint chosen_point();
  std::vector<ResidentEvent> resident_events() const;
  void add_resident_to(Timeline& timeline) const;
  void add_own_losses(std::vector<std::string>& notes);
  Hiding hiding_of(TraceId trace);
  void compare_with_statistics(std::vector<std::string>& notes);

  std::shared_ptr<const Log> log_;
  const Snapshot& snapshot_;
  Desk& desk_;
  const Suppressions& suppressions_;
  const Selection& selection_;
  Wanted wanted_;
  std::optional<ProfInfo> statistics_;
  std::optional<Symbolizer> symbolizer_;
  std::optional<RecordPass> pass_;
  std::optional<Chooser> chooser_;
  std::vector<std::optional<Hiding>> hidings_;  // by trace id
  std::map<Grouping, SiteTable> sites_;
};

}  // namespace quarl::report
