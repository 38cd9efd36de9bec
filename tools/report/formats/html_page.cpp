#include "report/formats/html_page.h"

#include <set>

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

Json snapshot_json(PageSites& page_sites, const std::string& label, Subject& subject) {
  const SiteTable& sites = subject.sites();
  return {{"label", label},
          {"time", subject.snapshot().header.time},
          {"bytes", sites.total().bytes},
          {"count", sites.total().count},
          {"sites", page_sites.add(sites.sites())}};
}

// Every n-th snapshot with records besides the one asked about.
std::set<const Snapshot*> compared_snapshots(Subject& subject) {
  std::vector<const Snapshot*> others;
  for (const Snapshot& snapshot : subject.log().snapshots()) {
    if (&snapshot != &subject.snapshot() && snapshot.records != 0) others.push_back(&snapshot);
  }
  size_t step = others.size() / kMaxSnapshots + 1;
  std::set<const Snapshot*> chosen;
  for (size_t index = 0; index < others.size(); index += step) chosen.insert(others[index]);
  return chosen;
}

Json timeline_json(const Timeline& timeline) {
  Json points = Json::array();
  size_t step = timeline.points.size() / kMaxPoints + 1;
  for (size_t index = 0; index < timeline.points.size(); index += step) {
    const TimePoint& point = timeline.points[index];
    points.push_back({point.at, point.bytes, point.entries ? Json(*point.entries) : Json()});
  }
  return {{"axis", name_of(timeline.axis)}, {"points", std::move(points)}};
}

// The members that need all snapshots, which are gone through once.
void add_history(Json& document, Subject& subject, Subject* before) {
  PageSites page_sites;
  Json snapshots = Json::array();
  auto add = [&](const std::string& label, Subject& each) {
    snapshots.push_back(snapshot_json(page_sites, label, each));
  };
  add(subject.label(), subject);
  if (before != nullptr) add(before->label(), *before);
  std::set<const Snapshot*> compared;
  if (before == nullptr) compared = compared_snapshots(subject);
  auto visit = [&](Subject& each) {
    if (!compared.contains(&each.snapshot())) return;
    add(fmt::format("snapshot {}", each.snapshot().header.snapshot_number), each);
  };
  Timeline timeline = subject.timeline(visit, before);
  document["snapshots"] = std::move(snapshots);
  document["sites"] = page_sites.take();
  document["compare"] = before != nullptr;
  document["timeline"] = timeline_json(timeline);
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

std::string html_page(Subject& subject, Subject* before, const Desk& desk) {
  Json document = json_head("page", subject, desk);
  add_summary(document, subject, 0);
  document.erase("sites");
  add_history(document, subject, before);
  document["fault_list"] = faults_json(subject);
  document["warnings"] = desk.warnings();
  std::string page(web_template());
  size_t at = page.find(kPlaceholder);
  if (at == std::string::npos) throw std::logic_error("the page template has no place for the data");
  return page.replace(at, sizeof(kPlaceholder) - 1, embeddable(document));
}

}  // namespace quarl::report
