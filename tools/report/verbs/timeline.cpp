// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>

#include "report/formats/json_document.h"
#include "report/formats/plot.h"
#include "report/verbs/answer.h"
#include "report/verbs/refusals.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

constexpr size_t kPlotHeight = 12;

// True when the snapshot lists what it holds, or holds nothing.
bool lists_all(const Log& log, const Snapshot& snapshot) {
  const ProfInfo statistics = log.statistics(snapshot);
  const bool empty = has_counts(statistics) && held_bytes(statistics) == 0 && held_file_bytes(statistics) == 0;
  return snapshot.records != 0 || empty;
}

void check_selection(const Selection& selection, const Subject& subject) {
  const Log& log = subject.log();
  if (log.kind() == LogKind::kRecords) {
    return refuse_age(selection,
                      "each point of a record log's timeline is a moment of its own; leaks and at tell of ages");
  }
  for (const Snapshot& snapshot : log.snapshots()) {
    if (lists_all(log, snapshot)) continue;
    throw CLI::ValidationError(
        "filters",
        fmt::format("snapshot {} does not list what it holds (QUARL_SNAP_DETAIL); nothing can be chosen from it",
                    snapshot.header.snapshot_number));
  }
}

}  // namespace

int report_timeline(const Options& options) {
  Answer answer(options);
  const bool chosen = !options.selection.empty();
  Subject subject = answer.open(options.files.front(), {.timeline = !chosen});
  if (chosen) check_selection(options.selection, subject);
  Timeline timeline = chosen ? subject.chosen_timeline() : subject.timeline();
  if (options.format == Format::kJson) {
    Json document = json_head("timeline", subject, answer.desk());
    document["axis"] = name_of(timeline.axis);
    document["points"] = to_json(timeline_rows(timeline));
    write_json(answer.output(), document);
  } else if (options.format == Format::kCsv) {
    write_csv(answer.output(), timeline_rows(timeline));
  } else {
    write_plot(answer.output(), timeline, kPlotHeight);
  }
  return answer.finish(subject.log().notes());
}

}  // namespace quarl::report
