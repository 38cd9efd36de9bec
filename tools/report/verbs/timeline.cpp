#include "report/formats/json_document.h"
#include "report/formats/plot.h"
#include "report/verbs/answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

constexpr size_t kPlotHeight = 12;

}  // namespace

int report_timeline(const Options& options) {
  Answer answer(options);
  Subject subject = answer.open(options.files.front(), {.timeline = true});
  Timeline timeline = subject.timeline();
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
