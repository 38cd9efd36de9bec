// SPDX-License-Identifier: Apache-2.0
// `grow`: what rises over many snapshots.
#include "report/analysis/growth_watch.h"

#include "report/formats/folded.h"
#include "report/formats/growth_page.h"
#include "report/formats/json_document.h"
#include "report/reading/progress.h"
#include "report/verbs/answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

// A snapshot as it is named on the command line.
struct Named {
  uint32_t time;
  std::string argument;
};

// Of one chain its snapshots, of several logs the one that each argument means, in the order of their times.
std::vector<Named> snapshots_of(Answer& answer) {
  std::vector<Named> named;
  const std::vector<std::string>& files = answer.options().files;
  for (const std::string& file : files) {
    Subject subject = answer.open(file);
    if (files.size() > 1) {
      named.push_back({subject.snapshot().header.time, file});
      continue;
    }
    for (const Snapshot* snapshot : growth_snapshots(subject.log())) {
      named.push_back({snapshot->header.time, fmt::format("{}@{}", file, snapshot->header.snapshot_number)});
    }
  }
  std::stable_sort(named.begin(), named.end(), [](const Named& a, const Named& b) { return a.time < b.time; });
  return named;
}

void add_snapshots(Answer& answer, Growth& growth) {
  const std::vector<Named> snapshots = snapshots_of(answer);
  Progress progress(answer.options().files.front(), snapshots.size());
  for (const Named& snapshot : snapshots) {
    Subject subject = answer.open(snapshot.argument);
    growth.add(snapshot.time, subject.sites(answer.options().grouping));
    progress.update(growth.snapshots());
  }
}

void add_moments(Answer& answer, Subject& subject, Growth& growth) {
  GrowthWatch watcher(growth, subject, answer.options().grouping);
  subject.pass().watch(watcher);
  subject.ledger();
}

void write_growth(Answer& answer, Subject& last, const Growth& growth) {
  const std::vector<GrownSite> sites = growth.sites();
  switch (answer.format()) {
    case Format::kJson: {
      Json document = json_head("grow", last, answer.desk());
      document.update(growth_json(growth, sites, answer.top()));
      return write_json(answer.output(), document);
    }
    case Format::kCsv:
      return write_csv(answer.output(), growth_rows(sites));
    default:
      return write_growth_text(answer.output(), growth, sites, answer.top());
  }
}

}  // namespace

int report_growth(const Options& options) {
  Answer answer(options);
  Subject last = answer.open(options.files.back());
  const bool moments = options.files.size() == 1 && last.log().kind() == LogKind::kRecords;
  Growth growth;
  moments ? add_moments(answer, last, growth) : add_snapshots(answer, growth);
  if (growth.snapshots() < kFewestSnapshots) {
    throw std::runtime_error(
        fmt::format("{}: growth is seen in {} snapshots with records or more (QUARL_SNAP_DETAIL), {} are there",
                    options.files.front(), kFewestSnapshots, growth.snapshots()));
  }
  write_growth(answer, last, growth);
  answer.note_left_out(growth.left_out());
  return answer.finish(last.log().notes());
}

}  // namespace quarl::report
