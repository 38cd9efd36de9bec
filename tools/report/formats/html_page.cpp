// SPDX-License-Identifier: Apache-2.0
#include "report/formats/html_page.h"

#include <set>

#include "report/formats/fault_json.h"
#include "report/formats/gzip.h"
#include "report/formats/json_document.h"
#include "report/formats/page_cells.h"
#include "report/formats/page_sites.h"
#include "report/formats/page_watches.h"
#include "report/formats/web_template.h"

namespace quarl::report {
namespace {

constexpr size_t kMaxSnapshots = 40;  // that can be compared; of longer chains every n-th
constexpr size_t kMaxCells = 400000;  // of those, so that a large heap does not make a page of many megabytes
constexpr size_t kMaxPoints = 600;
constexpr size_t kMaxMappings = 1000;
constexpr size_t kMaxGrown = 500;
constexpr char kPlaceholder[] = "quarl-report-data";

class Page {
 public:
  Page(Subject& subject, PageWatches& watches, Subject* before, const Desk& desk)
      : subject_(subject), watches_(watches), before_(before), document_(json_head("page", subject, desk)) {
    document_["tool"] = QUARL_VERSION;
    add_summary(document_, subject, 0);
    add_held();
    if (watches_.there()) add_flow();
    add_timeline();
    add_growth();
    add_threads();
    add_mappings();
    add_faults();
    document_["moments"] = watches_.moments().json();
    document_["warnings"] = desk.warnings();
  }

  std::string text() && {
    std::move(sites_).write(document_);
    return document_.dump(-1, ' ', false, Json::error_handler_t::replace);
  }

 private:
  PageCells unfreed_cells(Subject& subject) {
    PageCells cells(watches_.moments());
    subject.for_each_unfreed([&](const LiveEntry& entry) { cells.add(entry); });
    return cells;
  }

  // The largest sites are taken first: what more there are than a page takes is summed up.
  Json cells_json(const PageCells& cells, Subject& subject) {
    std::unordered_map<TraceId, size_t> sites;
    Usage total, rest;
    for (const auto& [trace, usage] : cells.traces()) {
      size_t stack = stack_of(subject, trace);
      total += usage;
      if (auto site = sites_.site_of(stack)) {
        sites[trace] = *site;
      } else {
        rest += usage;
      }
    }
    PageCells moved = cells.by_site(sites);
    cells_ += moved.size();
    return {{"total", usage_json(total)}, {"rest", usage_json(rest)}, {"cells", moved.json()}};
  }

  Json held_json(const std::string& label, Subject& subject) {
    Json json = {{"label", label}, {"time", subject.snapshot().header.time}};
    json.update(cells_json(unfreed_cells(subject), subject));
    return json;
  }

  void add_held() {
    document_["held_now"] = held_json(subject_.label(), subject_);
    document_["compare"] = before_ != nullptr;
    Json levels = Json::array();
    for (const Level& level : empty_histogram()) levels.push_back({{"from", level.from}, {"name", name_of(level)}});
    document_["levels"] = std::move(levels);
  }

  // Not what is held at the end, but what was held at the highest point, and what came and went.
  void add_flow() {
    const OpRecord& record = watches_.peak().record();
    document_["peak"] = cells_json(watches_.peak_cells(), subject_);
    document_["peak"].update({{"bytes", watches_.peak().bytes()}, {"sequence", record.seq_num}, {"time", record.time}});
    document_["hot"] = cells_json(watches_.hot_cells(), subject_);
    document_["temporary"] = cells_json(watches_.temporary_cells(), subject_);
    document_["temporary"]["released"] = usage_json(watches_.released());
  }

  // Every n-th snapshot with records besides the one asked about.
  std::set<const Snapshot*> compared_snapshots() {
    std::vector<const Snapshot*> others;
    for (const Snapshot& snapshot : subject_.log().snapshots()) {
      if (&snapshot != &subject_.snapshot() && snapshot.records != 0) others.push_back(&snapshot);
    }
    size_t most = std::clamp<size_t>(kMaxCells / std::max<size_t>(cells_, 1), 1, kMaxSnapshots);
    size_t step = (others.size() + most - 1) / most;
    document_["every"] = step;
    std::set<const Snapshot*> chosen;
    for (size_t index = 0; index < others.size(); index += step) chosen.insert(others[index]);
    return chosen;
  }

  // The members that need all snapshots, which are gone through once.
  void add_timeline() {
    Json bases = Json::array();
    std::set<const Snapshot*> compared;
    if (before_ != nullptr) {
      bases.push_back(held_json(before_->label(), *before_));
    } else {
      compared = compared_snapshots();
    }
    std::vector<const Snapshot*> grown = growth_snapshots(subject_.log());
    Timeline timeline = subject_.timeline(
        [&](Subject& each) {
          if (!watches_.there() && std::binary_search(grown.begin(), grown.end(), &each.snapshot()))
            watches_.growth().add(each.snapshot().header.time, each.sites());
          if (!compared.contains(&each.snapshot())) return;
          bases.push_back(held_json(fmt::format("snapshot {}", each.snapshot().header.snapshot_number), each));
        },
        before_);
    document_["bases"] = std::move(bases);
    Json points = Json::array();
    for (const TimePoint& point : thinned(timeline.points, kMaxPoints)) {
      Json entries = point.entries ? Json(*point.entries) : Json();
      points.push_back({point.at, point.bytes, std::max(point.bytes, point.peak), std::move(entries),
                        point.entries ? Json(point.most_entries) : Json(),
                        point.resident ? Json(*point.resident) : Json()});
    }
    document_["timeline"] = {{"axis", name_of(timeline.axis)}, {"points", std::move(points)}};
  }

  void add_growth() {
    const Growth& growth = watches_.growth();
    std::vector<GrownSite> sites;
    if (growth.snapshots() >= kFewestSnapshots) sites = growth.sites();
    Json rows = Json::array();
    for (size_t index = 0; index < std::min(sites.size(), kMaxGrown); ++index) {
      const GrownSite& grown = sites[index];
      Json points = Json::array();
      for (const Usage& usage : grown.points) points.push_back({usage.bytes, usage.count});
      rows.push_back({{"rank", grown.rank()},
                      {"slope", grown.slope},
                      {"steadiness", grown.steadiness},
                      {"points", std::move(points)},
                      {"stack", sites_.stack_of(grown.site.frames)}});
    }
    document_["grow"] = {{"snapshots", growth.snapshots()},
                         {"every", growth.by_time() ? "second" : "snapshot"},
                         {"count", sites.size()},
                         {"rows", std::move(rows)}};
  }

  void add_threads() {
    ThreadTallies tallies = subject_.pass().threads();
    document_["threads"] = {{"source", tallies.from_table ? "thread table" : "records"},
                            {"seconds", tallies.seconds},
                            {"rows", threads_json(tallies)}};
  }

  // The largest of those that are held; the cells have the sums of all.
  void add_mappings() {
    std::vector<LiveEntry> held;
    subject_.for_each_unfreed([&](const LiveEntry& entry) {
      if (is_mapping(entry)) held.push_back(entry);
    });
    std::sort(held.begin(), held.end(), [](const LiveEntry& a, const LiveEntry& b) {
      return a.size != b.size ? a.size > b.size : a.address < b.address;
    });
    Json rows = Json::array();
    for (size_t index = 0; index < std::min(held.size(), kMaxMappings); ++index) {
      const LiveEntry& entry = held[index];
      rows.push_back({{"bytes", entry.size},
                      {"address", entry.address},
                      {"file", entry.from_file},
                      {"thread", entry.tid},
                      {"time", entry.time},
                      {"stack", stack_of(subject_, entry.trace)}});
    }
    document_["mappings"] = {{"count", held.size()}, {"rows", std::move(rows)}};
  }

  void add_faults() {
    Json rows = Json::array();
    const TraceMember trace = {"stack", [this](const Frames& frames) -> Json { return sites_.stack_of(frames); }};
    for (const Fault& fault : subject_.ledger().faults().all()) rows.push_back(fault_json(subject_, fault, trace));
    document_["fault_list"] = std::move(rows);
  }

  size_t stack_of(Subject& subject, TraceId trace) {
    return sites_.stack_of(subject.symbolizer().trace(subject.ledger().traces().addresses(trace)));
  }

  Subject& subject_;
  PageWatches& watches_;
  Subject* before_;
  Json document_;
  PageSites sites_;
  size_t cells_ = 0;
};

// RFC 4648, with padding. Nothing in it could end the element that holds it.
std::string base64(const std::string& bytes) {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t at = 0; at < bytes.size(); at += 3) {
    size_t there = std::min<size_t>(bytes.size() - at, 3);
    uint32_t group = 0;
    for (size_t index = 0; index < 3; ++index)
      group = group << 8 | (index < there ? static_cast<uint8_t>(bytes[at + index]) : 0);
    for (size_t digit = 0; digit < 4; ++digit) text += digit <= there ? kDigits[group >> (18 - 6 * digit) & 63] : '=';
  }
  return text;
}

}  // namespace

HtmlPage::HtmlPage(Subject& subject) : subject_(subject), watches_(std::make_unique<PageWatches>(subject)) {}

HtmlPage::~HtmlPage() = default;

std::string HtmlPage::text(Subject* before, const Desk& desk) {
  std::string page(web_template());
  size_t at = page.find(kPlaceholder);
  if (at == std::string::npos) throw std::logic_error("the page template has no place for the data");
  return page.replace(at, sizeof(kPlaceholder) - 1, base64(gzip(Page(subject_, *watches_, before, desk).text())));
}

}  // namespace quarl::report
