// `grow`: what rises over many snapshots.
#include "report/analysis/growth.h"

#include "report/formats/folded.h"
#include "report/formats/growth_page.h"
#include "report/formats/json_document.h"
#include "report/reading/progress.h"
#include "report/verbs/answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

constexpr size_t kMaxSnapshots = 256;  // of longer chains every n-th, and the last
constexpr size_t kRecordPoints = 32;   // of a record log, as many records apart each
constexpr size_t kFewest = 3;          // that a trend can be seen in

// Looks at a record log from time to time while it is read.
class RecordGrowth : public HeldWatcher {
 public:
  RecordGrowth(Growth& growth, Subject& subject, Grouping grouping)
      : growth_(growth), subject_(subject), grouping_(grouping), records_(subject.snapshot().records) {}
  void came(const LiveEntry&, const OpRecord&) override {}
  void went(const LiveEntry&, Going, const OpRecord&) override {}
  void passed(const OpRecord& record, const Ledger& ledger) override {
    const uint64_t done = uint64_t{ledger.taken()} + 1;
    latest_ = std::max(latest_, record.time);
    if (done * kRecordPoints / records_ == (done - 1) * kRecordPoints / records_) return;
    growth_.add(latest_, subject_.sites_now(grouping_));
  }

 private:
  Growth& growth_;
  Subject& subject_;
  Grouping grouping_;
  uint64_t records_;
  uint32_t latest_ = 0;
};

std::vector<const Snapshot*> chosen_snapshots(const Log& log) {
  std::vector<const Snapshot*> all, chosen;
  for (const Snapshot& snapshot : log.snapshots()) {
    if (snapshot.records != 0) all.push_back(&snapshot);
  }
  const size_t step = (all.size() + kMaxSnapshots - 1) / kMaxSnapshots;
  for (size_t index = 0; index < all.size(); ++index) {
    if (index % step == 0 || index + 1 == all.size()) chosen.push_back(all[index]);
  }
  return chosen;
}

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
    for (const Snapshot* snapshot : chosen_snapshots(subject.log())) {
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
  RecordGrowth watcher(growth, subject, answer.options().grouping);
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
  if (growth.snapshots() < kFewest) {
    throw std::runtime_error(
        fmt::format("{}: growth is seen in {} snapshots with records or more (QUARL_SNAP_DETAIL), {} are there",
                    options.files.front(), kFewest, growth.snapshots()));
  }
  write_growth(answer, last, growth);
  return answer.finish(last.log().notes());
}

}  // namespace quarl::report
