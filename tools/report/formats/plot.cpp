// SPDX-License-Identifier: Apache-2.0
#include "report/formats/plot.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string_view>

#include "report/formats/table.h"

namespace quarl::report {
namespace {

constexpr size_t kLabel = 16;
constexpr size_t kSteps = 8;  // of one character's height

using Value = std::function<uint64_t(const TimePoint&)>;

struct Measure {
  const char* title;
  Value at;    // the moment of a point
  Value most;  // between the point before and this one
};

bool has_utf8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = getenv(name);
    if (value != nullptr && *value != '\0') return std::string_view(value).find("UTF-8") != std::string_view::npos;
  }
  return false;
}

// The largest value that falls into each column; in a column without a point it stays as the one before left it.
std::vector<uint64_t> columns_of(const Timeline& timeline, size_t width, const Measure& measure) {
  uint64_t first = timeline.points.front().at;
  uint64_t span = std::max<uint64_t>(timeline.points.back().at - std::min(first, timeline.points.back().at), 1);
  std::vector<uint64_t> columns(width, 0);
  std::vector<std::optional<uint64_t>> last(width);
  for (const TimePoint& point : timeline.points) {
    size_t column =
        static_cast<size_t>(std::min<uint64_t>((point.at - std::min(first, point.at)) * (width - 1) / span, width - 1));
    columns[column] = std::max({columns[column], measure.at(point), measure.most(point)});
    last[column] = measure.at(point);
  }
  for (size_t column = 1; column < width; ++column) {
    if (!last[column]) last[column] = columns[column] = last[column - 1].value_or(0);
  }
  return columns;
}

const char* symbol(uint64_t steps, bool utf8) {
  static constexpr const char* kBlocks[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  if (utf8) return kBlocks[std::min<uint64_t>(steps, kSteps)];
  return steps >= kSteps ? "#" : steps > 0 ? "." : " ";
}

void write_area(Output& output, const std::vector<uint64_t>& columns, size_t height) {
  uint64_t top = std::max<uint64_t>(*std::max_element(columns.begin(), columns.end()), 1);
  bool utf8 = has_utf8();
  for (size_t row = height; row-- > 0;) {
    std::string label = row + 1 == height ? grouped(top) : row == 0 ? "0" : "";
    output.print("{:>{}} |", label, kLabel);
    for (uint64_t value : columns) {
      auto steps = static_cast<uint64_t>(
          static_cast<double>(value) / static_cast<double>(top) * static_cast<double>(height * kSteps) + 0.5);
      output.print("{}", symbol(steps > row * kSteps ? steps - row * kSteps : 0, utf8));
    }
    output.print("\n");
  }
}

std::string position(const Timeline& timeline, uint64_t at) {
  return timeline.axis == TimeAxis::kSeconds ? clock_time(at) : fmt::format("record {}", grouped(at));
}

void write_axis(Output& output, const Timeline& timeline, size_t width) {
  std::string first = position(timeline, timeline.points.front().at);
  std::string last = position(timeline, timeline.points.back().at);
  output.print("{:>{}} +{:->{}}\n", "", kLabel, "", width);
  output.print("{:>{}}  {}{:>{}}\n", "", kLabel, first, last,
               width > first.size() ? width - first.size() : last.size() + 2);
}

}  // namespace

void write_plot(Output& output, const Timeline& timeline, size_t height) {
  if (timeline.points.empty()) return output.print("The log holds no points in time.\n");
  size_t width = std::clamp<size_t>(output.terminal() ? output.width() : 80, 40, 200) - kLabel - 3;
  auto plot = [&](const Timeline& points, const Measure& measure) {
    output.print("{}\n", output.bold(measure.title));
    write_area(output, columns_of(points, width, measure), height);
    write_axis(output, points, width);
  };
  plot(timeline, {"Bytes held (heap and anonymous mappings)", [](const TimePoint& point) { return point.bytes; },
                  [](const TimePoint& point) { return point.peak; }});
  bool counted = std::any_of(timeline.points.begin(), timeline.points.end(),
                             [](const TimePoint& p) { return p.entries.has_value(); });
  if (counted)
    plot(timeline, {"Blocks and mappings held", [](const TimePoint& point) { return point.entries.value_or(0); },
                    [](const TimePoint& point) { return point.most_entries; }});
  Timeline resident = timeline;
  std::erase_if(resident.points, [](const TimePoint& point) { return !point.resident; });
  if (resident.points.empty()) return;
  plot(resident, {"Resident memory, where snapshots were taken", [](const TimePoint& point) { return *point.resident; },
                  [](const TimePoint& point) { return *point.resident; }});
}

}  // namespace quarl::report
