// SPDX-License-Identifier: Apache-2.0
#include "report/formats/json_document.h"

#include "report/formats/fault_json.h"

namespace quarl::report {
namespace {

Json known_json(const std::optional<uint64_t>& value) {
  return value ? Json(*value) : Json();
}

Json counted_json(const ProfInfo& statistics) {
  return {{"bytes", held_bytes(statistics)},
          {"peak", known_json(known_peak(statistics.unfree_peak))},
          {"peak_exact", peak_is_exact(statistics)},
          {"file_bytes", held_file_bytes(statistics)},
          {"file_peak", known_json(known_peak(statistics.unfree_file_peak))}};
}

}  // namespace

Json json_head(const char* verb, Subject& subject, const Desk& desk) {
  Json document = {{"schema", "quarl-report"}, {"version", kJsonVersion}, {"verb", verb}, {"log", log_json(subject)}};
  document["warnings"] = desk.warnings();
  return document;
}

Json log_json(Subject& subject) {
  const LogHeader& header = subject.snapshot().header;
  return {{"file", subject.log().file().path()},
          {"kind", name_of(subject.log().kind())},
          {"process", subject.log().process_name()},
          {"pid", header.pid},
          {"program", subject.symbolizer().maps().program()},
          {"byte_order", header.byte_order == kBigEndian ? "big" : "little"},
          {"snapshot", header.snapshot_number},
          {"snapshots", subject.log().snapshots().size()},
          {"time", header.time},
          {"records", subject.pass().records()},
          {"whole", subject.losses().empty()},
          {"notes", subject.notes()}};
}

void add_summary(Json& document, Subject& subject, size_t top) {
  const ProfInfo* counted = subject.counted();
  document["operations"] = to_json(statistics_rows(subject));
  document["held"] = counted == nullptr ? Json() : counted_json(*counted);
  const Held& held = subject.ledger().held();
  bool in_order = subject.log().kind() == LogKind::kRecords;  // a snapshot knows of one moment only
  document["recorded"] = {{"bytes", held.bytes},
                          {"peak", in_order ? Json(held.peak) : Json()},
                          {"file_bytes", held.file_bytes},
                          {"file_peak", in_order ? Json(held.file_peak) : Json()},
                          {"count", held.entries}};
  if (auto resident = subject.resident()) document["resident"] = *resident;
  document["histogram"] = to_json(histogram_rows(histogram_of_unfreed(subject)));
  document["faults"] = subject.ledger().faults().count();
  add_sites(document, subject.sites(), top, "unfreed");
}

void add_left_out(Json& document, const LeftOut& left_out) {
  document["suppressed"] = usage_json(left_out.by_user);
  document["suppressed_by_default"] = usage_json(left_out.by_default);
}

void add_sites(Json& document, const SiteTable& sites, size_t top, const char* member) {
  document[member] = usage_json(sites.total());
  add_left_out(document, sites.left_out());
  document["site_count"] = sites.sites().size();
  Json array = Json::array();
  for (size_t index = 0; index < std::min(top, sites.sites().size()); ++index)
    array.push_back(site_json(sites.sites()[index]));
  document["sites"] = std::move(array);
}

Json tree_json(const CallNode& root) {
  Json node = {{"name", root.name}, {"bytes", root.usage.bytes}, {"count", root.usage.count}};
  Json children = Json::array();
  for (const CallNode& child : root.children) children.push_back(tree_json(child));
  node["children"] = std::move(children);
  return node;
}

Json changes_json(const std::vector<SiteDifference>& changes, size_t top) {
  Json array = Json::array();
  for (size_t index = 0; index < std::min(top, changes.size()); ++index) {
    const SiteDifference& change = changes[index];
    array.push_back({{"change", name_of(change.change)},
                     {"bytes", change.bytes()},
                     {"count", change.count()},
                     {"before", usage_json(change.before)},
                     {"after", usage_json(change.after)},
                     {"name", change.site.name},
                     {"frames", frames_json(change.site.frames)}});
  }
  return array;
}

Json faults_json(Subject& subject) {
  Json array = Json::array();
  for (const Fault& fault : subject.ledger().faults().all())
    array.push_back(fault_json(subject, fault, {"frames", frames_json}));
  return array;
}

void write_json(Output& output, const Json& document) {
  output.write(document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace quarl::report
