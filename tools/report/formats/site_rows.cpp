// SPDX-License-Identifier: Apache-2.0
#include "report/formats/site_rows.h"

#include "report/formats/operation_name.h"
#include "report/symbols/short_name.h"

namespace quarl::report {
namespace {

Cell or_nothing(uint64_t value) {
  return value == 0 ? Cell{} : Cell{value};
}
Cell known(const std::optional<uint64_t>& value) {
  return value ? Cell{*value} : Cell{};
}
// A sign stands only before what is below zero.
Cell amount(int64_t bytes) {
  return bytes < 0 ? Cell{bytes} : Cell{static_cast<uint64_t>(bytes)};
}
Cell time_cell(uint64_t seconds) {
  return seconds == 0 ? Cell{} : Cell{clock_time(seconds)};
}

std::string source_path(const Site& site) {
  if (site.frames.empty() || site.frames.front().file.empty()) return "";
  return fmt::format("{}:{}", site.frames.front().file, site.frames.front().line);
}

std::string name_in(const Site& site, Names names) {
  if (names == Names::kWhole) return site.name;
  return site.frames.empty() ? short_name(site.name) : describe(site.frames.front(), names);
}

uint64_t net(uint64_t all, uint64_t chunks) {
  return all - std::min(all, chunks);
}

// The application's own anonymous mappings: without those that the allocator made for large blocks.
std::vector<Cell> statistics_row(const ProfInfo& statistics, int operation, int chunks) {
  auto value = [&](const auto& counter) {
    return chunks < 0 ? uint64_t{counter[operation]} : net(counter[operation], counter[chunks]);
  };
  return {std::string(operation_name(operation)), value(statistics.calls), value(statistics.failed),
          value(statistics.totals)};
}

Cell rate(uint64_t calls, uint32_t seconds) {
  return seconds == 0 ? Cell{} : Cell{static_cast<double>(calls) / seconds};
}

}  // namespace

Table site_rows(const std::vector<Site>& sites, size_t limit, Names names) {
  Table table{{{"bytes", "bytes"},
               {"count", "blocks"},
               {"oldest", "oldest"},
               {"newest", "newest"},
               {"kind", "kind"},
               {"source", "source"},
               {"site", "site"}},
              {}};
  for (const Site& site : sites) {
    if (table.rows.size() == limit) break;
    table.rows.push_back({site.usage.bytes, site.usage.count, time_cell(site.oldest), time_cell(site.newest),
                          site.kind(), source_path(site), name_in(site, names)});
  }
  return table;
}

Table difference_rows(const std::vector<SiteDifference>& changes) {
  Table table{{{"change", "change"},
               {"bytes", "bytes"},
               {"count", "blocks"},
               {"bytes_before", "bytes before"},
               {"bytes_after", "after"},
               {"count_before", "blocks before"},
               {"count_after", "after"},
               {"site", "site"}},
              {}};
  for (const SiteDifference& change : changes) {
    table.rows.push_back({std::string(name_of(change.change)), change.bytes(), change.count(), change.before.bytes,
                          change.after.bytes, change.before.count, change.after.count, change.site.name});
  }
  return table;
}

Table statistics_rows(Subject& subject) {
  Table table{{{"operation", "operation"}, {"calls", "calls"}, {"failed", "failed"}, {"bytes", "bytes"}}, {}};
  const ProfInfo* counted = subject.counted();
  if (counted == nullptr) {
    if (subject.log().kind() != LogKind::kRecords) return table;
    for (int operation = 0; operation < kOpCount; ++operation) {
      const OperationTotals& totals = subject.ledger().totals(operation);
      if (totals.calls != 0)
        table.rows.push_back({std::string(operation_name(operation)), totals.calls, totals.failed, totals.bytes});
    }
    return table;
  }
  const ProfInfo& statistics = *counted;
  for (int operation : {kOpMalloc, kOpRealloc, kOpReallocRelease, kOpFree, kOpMemalign}) {
    table.rows.push_back(statistics_row(statistics, operation, -1));
  }
  table.rows.push_back(statistics_row(statistics, kOpMmap, kOpChunkMap));
  table.rows.push_back(statistics_row(statistics, kOpMunmap, kOpChunkUnmap));
  for (int operation : {kOpChunkMap, kOpChunkUnmap, kOpMmapFile, kOpMunmapFile}) {
    table.rows.push_back(statistics_row(statistics, operation, -1));
  }
  return table;
}

Histogram histogram_of_unfreed(Subject& subject) {
  return build_histogram([&](const auto& visit) { subject.for_each_unfreed(visit); });
}

Table histogram_rows(const Histogram& histogram) {
  Table table{{{"size", "size in bytes"}, {"count", "blocks"}, {"bytes", "bytes"}}, {}};
  for (const Level& level : histogram) table.rows.push_back({name_of(level), level.usage.count, level.usage.bytes});
  return table;
}

Table timeline_rows(const Timeline& timeline) {
  bool seconds = timeline.axis == TimeAxis::kSeconds;
  Table table{{{seconds ? "time" : "record", seconds ? "time" : "record"},
               {"snapshot", "snapshot"},
               {"bytes", "bytes"},
               {"file_bytes", "file bytes"},
               {"count", "blocks"},
               {"peak", "peak"},
               {"resident", "resident"}},
              {}};
  for (const TimePoint& point : timeline.points) {
    table.rows.push_back({point.at, or_nothing(point.snapshot), point.bytes, point.file_bytes, known(point.entries),
                          point.peak, known(point.resident)});
  }
  bool told = std::any_of(timeline.points.begin(), timeline.points.end(),
                          [](const TimePoint& point) { return point.resident.has_value(); });
  return told ? table : without_column(std::move(table), "resident");
}

Table thread_rows(const ThreadTallies& tallies) {
  Table table{{{"tid", "tid", true},
               {"allocations", "allocations"},
               {"releases", "releases"},
               {"failures", "failures"},
               {"bytes_allocated", "allocated"},
               {"bytes_released", "released"},
               {"bytes_held", "held"},
               {"peak", "peak"},
               {"in_place", "in place"},
               {"shrunk", "shrunk"},
               {"allocations_per_second", "allocs/s"},
               {"bytes_per_second", "bytes/s"},
               {"name", "name"}},
              {}};
  for (const ThreadTally& thread : tallies.threads) {
    table.rows.push_back({uint64_t{thread.tid}, thread.allocations, thread.releases, thread.failures, thread.allocated,
                          thread.released, amount(thread.held), known(thread.peak), known(thread.in_place),
                          known(thread.shrunk), rate(thread.allocations, tallies.seconds),
                          rate(thread.allocated, tallies.seconds), thread.name});
  }
  return table;
}

Json threads_json(const ThreadTallies& tallies) {
  Json rows = to_json(thread_rows(tallies));
  for (size_t index = 0; index < rows.size(); ++index) {
    const ThreadTally& thread = tallies.threads[index];
    if (thread.peak) rows[index]["peak_exact"] = thread.peak_exact;
  }
  return rows;
}

Json usage_json(const Usage& usage) {
  return {{"bytes", usage.bytes}, {"count", usage.count}};
}

Json frames_json(const Frames& frames) {
  Json array = Json::array();
  for (const Frame& frame : frames) {
    Json object = {{"address", frame.address},   {"module", frame.module}, {"offset", frame.offset},
                   {"function", frame.function}, {"file", frame.file},     {"line", frame.line},
                   {"inlined", frame.inlined}};
    if (frame.function_offset != 0) object["function_offset"] = frame.function_offset;
    object["text"] = describe(frame);
    if (!frame.entry.empty()) object["entry"] = frame.entry;
    array.push_back(std::move(object));
  }
  return array;
}

Json site_json(const Site& site) {
  Json object = usage_json(site.usage);
  object["name"] = site.name;
  object["kind"] = site.kind();
  object["smallest"] = site.smallest;
  object["largest"] = site.largest;
  object["oldest"] = site.oldest == 0 ? Json() : Json(site.oldest);
  object["newest"] = site.newest == 0 ? Json() : Json(site.newest);
  object["threads"] = site.tids;
  object["frames"] = frames_json(site.frames);
  return object;
}

}  // namespace quarl::report
