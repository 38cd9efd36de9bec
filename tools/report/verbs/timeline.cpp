#include "report/formats/json_document.h"
#include "report/formats/plot.h"
#include "report/verbs/answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

constexpr size_t kPlotHeight = 12;

Timeline timeline_of(Subject& subject) {
  if (subject.log().kind() == LogKind::kRecords) return record_timeline(subject.log(), subject.snapshot());
  return snapshot_timeline(subject.log());
}

}  // namespace

int report_timeline(const Options& options) {
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  Timeline timeline = timeline_of(subject);
  if (options.format == Format::kJson) {
    Json document = json_head("timeline", subject, answer.desk());
    document["axis"] = timeline.axis == TimeAxis::kSeconds ? "seconds" : "records";
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
