// SPDX-License-Identifier: Apache-2.0
#include "report/formats/growth_page.h"

#include <algorithm>
#include <cmath>

#include "report/formats/json_document.h"
#include "report/formats/site_rows.h"
#include "report/formats/text_page.h"

namespace quarl::report {
namespace {

std::string every(const Growth& growth) {
  return growth.by_time() ? "second" : "snapshot";
}

std::string rate(double bytes) {
  return bytes >= 100 ? grouped(static_cast<uint64_t>(std::llround(bytes))) : fmt::format("{:.2g}", bytes);
}

Json point_json(const GrownSite& site) {
  Json points = Json::array();
  for (const Usage& usage : site.points) points.push_back({usage.bytes, usage.count});
  return points;
}

// Of a site that has fallen again, how high it was.
std::string height(const GrownSite& grown) {
  auto lower = [](const Usage& a, const Usage& b) { return a.bytes < b.bytes; };
  const Usage& most = *std::max_element(grown.points.begin(), grown.points.end(), lower);
  return most.bytes > grown.points.back().bytes ? ", at most " + in_blocks(most) : "";
}

void write_site(Output& output, const Growth& growth, const GrownSite& grown) {
  output.print("\n{}, steadiness {:.2f}: from {} to {}{}\n",
               output.bold(fmt::format("+{} bytes a {}", rate(grown.slope), every(growth))), grown.steadiness,
               in_blocks(grown.points.front()), in_blocks(grown.points.back()), height(grown));
  write_place(output, grown.site);
}

}  // namespace

Table growth_rows(const std::vector<GrownSite>& sites) {
  Table table{{{"rank", "rank"},
               {"slope", "slope"},
               {"steadiness", "steadiness"},
               {"bytes_before", "bytes before"},
               {"bytes_after", "after"},
               {"count_before", "blocks before"},
               {"count_after", "after"},
               {"site", "site"}},
              {}};
  for (const GrownSite& grown : sites) {
    const Usage &before = grown.points.front(), &after = grown.points.back();
    table.rows.push_back({grown.rank(), grown.slope, grown.steadiness, before.bytes, after.bytes, before.count,
                          after.count, grown.site.name});
  }
  return table;
}

Json growth_json(const Growth& growth, const std::vector<GrownSite>& sites, size_t top) {
  Json array = Json::array();
  for (size_t index = 0; index < std::min(top, sites.size()); ++index) {
    const GrownSite& grown = sites[index];
    array.push_back({{"rank", grown.rank()},
                     {"slope", grown.slope},
                     {"steadiness", grown.steadiness},
                     {"name", grown.site.name},
                     {"points", point_json(grown)},
                     {"frames", frames_json(grown.site.frames)}});
  }
  Json document = {{"axis", growth.by_time() ? "seconds" : "snapshots"},
                   {"times", growth.times()},
                   {"site_count", sites.size()},
                   {"sites", std::move(array)}};
  add_left_out(document, growth.left_out());
  return document;
}

void write_growth_text(Output& output, const Growth& growth, const std::vector<GrownSite>& sites, size_t top) {
  output.print(
      "{} rise over {} snapshots; ranked by bytes a {} times steadiness, the share of snapshots that hold more than "
      "all before\n",
      output.bold(counted(sites.size(), "site")), growth.snapshots(), every(growth));
  write_left_out(output, growth.left_out());
  for (size_t index = 0; index < std::min(top, sites.size()); ++index) write_site(output, growth, sites[index]);
  write_remainder(output, std::min(top, sites.size()), sites.size());
}

}  // namespace quarl::report
