// SPDX-License-Identifier: Apache-2.0
// `hot` and `temporary`: not what is held, but what comes and goes.
#include "report/analysis/turnover.h"

#include "report/analysis/short_lived.h"
#include "report/formats/site_rows.h"
#include "report/verbs/site_answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {

int report_hot(const Options& options) {
  require_traces(options);
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  require_records(subject, "what was ever allocated");
  Turnover turnover(options.grouping, subject.chooser(), subject.pass().filling());
  subject.pass().watch(turnover);
  SiteTable sites = subject.table(options.grouping, options.order, [&](SiteTable& table) { turnover.fill(table); });
  const char* order = options.order == Order::kCount ? "Most calls first." : "Most bytes first.";
  write_site_answer(answer, subject, sites, {"hot", "allocated in all", "allocated", Json::object(), {order}});
  return answer.finish(subject.log().notes());
}

int report_temporary(const Options& options) {
  require_traces(options);
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  require_records(subject, "how long blocks lived");
  ShortLived short_lived(options.grouping, subject.chooser(), subject.pass().filling(), options.within);
  subject.pass().watch(short_lived);
  SiteTable sites = subject.table(options.grouping, options.order, [&](SiteTable& table) { short_lived.fill(table); });
  const std::string rule = options.within == 0
                               ? "before the thread's next allocation"
                               : fmt::format("within the thread's next {}", counted(options.within, "operation"));
  Json about = {{"within", options.within == 0 ? Json() : Json(options.within)},
                {"released", usage_json(short_lived.released())}};
  std::string line = fmt::format("Temporary: released by the thread that asked, {}; of {} that were released", rule,
                                 counted(short_lived.released().count, "block"));
  write_site_answer(answer, subject, sites, {"temporary", "temporary", "temporary", std::move(about), {line}});
  return answer.finish(subject.log().notes());
}

}  // namespace quarl::report
