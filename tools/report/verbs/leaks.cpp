#include "report/verbs/site_answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {

int report_leaks(const Options& options) {
  require_traces(options);
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  const SiteTable& sites = subject.sites(options.grouping);
  write_site_answer(answer, subject, sites, {"leaks", "unfreed", "unfreed", Json::object(), {}});
  int status = answer.finish(subject);
  return status != 0 ? status : answer.judge(sites.total(), subject.losses());
}

}  // namespace quarl::report
