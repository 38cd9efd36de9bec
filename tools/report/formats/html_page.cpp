#include "report/formats/html_page.h"

#include "report/formats/json_document.h"
#include "report/formats/web_template.h"

namespace quarl::report {
namespace {

constexpr size_t kMaxSites = 4000;    // of the page in all; the rest is summed up in one
constexpr size_t kMaxSnapshots = 40;  // that can be compared; of longer chains every n-th
constexpr size_t kMaxPoints = 600;
constexpr char kPlaceholder[] = "\"quarl-report-data\"";

// Sites of all snapshots of the page, each once; a snapshot refers to them by index.
class PageSites {
 public:
  Json add(const std::vector<Site>& sites) {
    Json rows = Json::array();
    Usage rest;
    for (const Site& site : sites) {
      if (auto index = index_of(site)) {
        rows.push_back({*index, site.usage.bytes, site.usage.count});
      } else {
        rest += site.usage;
      }
    }
    if (rest.count != 0) rows.push_back({nullptr, rest.bytes, rest.count});
    return rows;
  }
  Json take() { return std::move(sites_); }

 private:
  std::optional<size_t> index_of(const Site& site) {
    auto known = indices_.find(site.key);
    if (known != indices_.end()) return known->second;
    if (sites_.size() >= kMaxSites) return std::nullopt;
    sites_.push_back(site_json(site));
    return indices_[site.key] = sites_.size() - 1;
  }
  Json sites_ = Json::array();
  std::unordered_map<std::string, size_t> indices_;
};

Json snapshot_json(PageSites& page_sites, const std::string& label, Subject& subject,
                   const Suppressions& suppressions) {
  SiteTable sites(subject.ledger(), subject.symbolizer(), Grouping::kTrace, suppressions);
  return {{"label", label},
          {"time", subject.snapshot().header.time},
          {"bytes", sites.total().bytes},
          {"count", sites.total().count},
          {"sites", page_sites.add(sites.sites())}};
}

// Every n-th snapshot with records besides the one asked about.
std::vector<uint32_t> compared_snapshots(const Log& log, const Snapshot& shown) {
  std::vector<uint32_t> numbers;
  for (const Snapshot& snapshot : log.snapshots()) {
    bool asked = snapshot.start == shown.start;
    if (!asked && snapshot.records != 0) numbers.push_back(snapshot.header.snapshot_number);
  }
  size_t step = numbers.size() / kMaxSnapshots + 1;
  std::vector<uint32_t> chosen;
  for (size_t index = 0; index < numbers.size(); index += step) chosen.push_back(numbers[index]);
  return chosen;
}

Json snapshots_json(PageSites& page_sites, Subject& subject, Subject* before, Desk& desk,
                    const Suppressions& suppressions) {
  Json snapshots = Json::array();
  snapshots.push_back(snapshot_json(page_sites, subject.label(), subject, suppressions));
  if (before != nullptr) snapshots.push_back(snapshot_json(page_sites, before->label(), *before, suppressions));
  if (before != nullptr) return snapshots;
  const Log& log = subject.log();
  for (uint32_t number : compared_snapshots(log, subject.snapshot())) {
    std::string label = fmt::format("{}@{}", log.file().path(), number);
    Subject other(label, log.kind(), desk);
    snapshots.push_back(snapshot_json(page_sites, fmt::format("snapshot {}", number), other, suppressions));
  }
  return snapshots;
}

Json timeline_json(Subject& subject) {
  const Log& log = subject.log();
  Timeline timeline =
      log.kind() == LogKind::kRecords ? record_timeline(log, subject.snapshot()) : snapshot_timeline(log);
  Json points = Json::array();
  size_t step = timeline.points.size() / kMaxPoints + 1;
  for (size_t index = 0; index < timeline.points.size(); index += step) {
    const TimePoint& point = timeline.points[index];
    points.push_back({point.at, point.bytes, point.entries ? Json(*point.entries) : Json()});
  }
  return {{"axis", timeline.axis == TimeAxis::kSeconds ? "seconds" : "records"}, {"points", std::move(points)}};
}

// "<" would let a function's name end the script element that holds the data.
std::string embeddable(const Json& document) {
  std::string text = document.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::string safe;
  for (char letter : text) {
    if (letter == '<')
      safe += "\\u003c";
    else
      safe += letter;
  }
  return safe;
}

}  // namespace

std::string html_page(Subject& subject, Subject* before, Desk& desk, const Suppressions& suppressions) {
  Json document = json_head("page", subject, desk);
  SiteTable sites(subject.ledger(), subject.symbolizer(), Grouping::kTrace, suppressions);
  add_summary(document, subject, sites, 0);
  document.erase("sites");
  PageSites page_sites;
  document["snapshots"] = snapshots_json(page_sites, subject, before, desk, suppressions);
  document["sites"] = page_sites.take();
  document["compare"] = before != nullptr;
  document["timeline"] = timeline_json(subject);
  document["fault_list"] = faults_json(subject);
  document["warnings"] = desk.warnings();
  std::string page(web_template());
  size_t at = page.find(kPlaceholder);
  if (at == std::string::npos) throw std::logic_error("the page template has no place for the data");
  return page.replace(at, sizeof(kPlaceholder) - 1, embeddable(document));
}

}  // namespace quarl::report
