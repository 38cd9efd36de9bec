// SPDX-License-Identifier: Apache-2.0
#include "report/formats/pprof.h"
#include "report/verbs/site_answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {

int report_leaks(const Options& options) {
  require_traces(options);
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  // A profile wants the records as they pass by.
  const bool profile = options.format == Format::kPprof;
  if (profile) answer.output().write(pprof_of(subject));
  const SiteTable& sites = subject.sites(options.grouping);
  if (!profile) write_site_answer(answer, subject, sites, {"leaks", "unfreed", "unfreed", Json::object(), {}});
  answer.note_left_out(sites.left_out());
  int status = answer.finish(subject);
  return status != 0 ? status : answer.judge(sites.total(), subject.losses());
}

}  // namespace quarl::report
