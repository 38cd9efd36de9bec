// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/peak_watch.h"

#include "report/formats/json_document.h"
#include "report/verbs/site_answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

std::string moment_of(const OpRecord& record) {
  std::string text = record.seq_num == 0 ? "" : fmt::format(" with record {}", record.seq_num);
  if (record.time != 0) text += (text.empty() ? " at " : ", ") + clock_time(record.time);
  return text;
}

Json number_or_null(uint32_t value) {
  return value == 0 ? Json() : Json(value);
}

SiteAnswer about(const PeakWatch& peak) {
  const OpRecord& record = peak.record();
  Json moment = {{"bytes", peak.bytes()},
                 {"sequence", number_or_null(record.seq_num)},
                 {"time", number_or_null(record.time)},
                 {"thread", number_or_null(record.tid)}};
  std::string line = fmt::format("{} was the most that was held, reached{}", counted(peak.bytes(), "byte"),
                                 peak.bytes() == 0 ? " never" : moment_of(record));
  return {"peak", "live at that moment", "live", {{"peak", std::move(moment)}}, {line}};
}

}  // namespace

int report_peak(const Options& options) {
  require_traces(options);
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  require_records(subject, "the highest point");
  PeakWatch peak;
  subject.pass().watch(peak);
  const Ledger& ledger = subject.ledger();
  Chooser chooser = subject.chooser_at(peak.record().time);
  SiteTable sites = subject.table(options.grouping, options.order, [&](SiteTable& table) {
    peak.for_each(ledger, [&](const LiveEntry& entry) {
      if (chooser.takes(entry, ledger.traces())) table.add(entry);
    });
  });
  write_site_answer(answer, subject, sites, about(peak));
  return answer.finish(subject);
}

}  // namespace quarl::report
