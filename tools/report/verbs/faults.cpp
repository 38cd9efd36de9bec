// SPDX-License-Identifier: Apache-2.0
#include "report/formats/json_document.h"
#include "report/formats/operation_name.h"
#include "report/formats/text_page.h"
#include "report/verbs/answer.h"
#include "report/verbs/refusals.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

Table fault_rows(Subject& subject) {
  Table table{{{"fault", "fault"},
               {"address", "address"},
               {"size", "size"},
               {"operation", "operation"},
               {"thread", "thread"},
               {"time", "time"},
               {"sequence", "sequence"},
               {"site", "site"}},
              {}};
  for (const Fault& fault : subject.ledger().faults().all()) {
    const OpRecord& record = fault.record;
    Frames frames = subject.symbolizer().trace(trace_of(record));
    table.rows.push_back({std::string(result_name(record.result)), uint64_t{record.start_addr}, uint64_t{record.size},
                          std::string(operation_name(record.operation)), uint64_t{record.tid}, uint64_t{record.time},
                          uint64_t{record.seq_num}, site_name(frames)});
  }
  return table;
}

}  // namespace

int report_faults(const Options& options) {
  Answer answer(options);
  refuse_age(options.selection, "an overrun has no age: its time may be that of the allocation or of the report");
  Subject subject = answer.open(options.files.front());
  subject.choose_faults();
  if (options.format == Format::kJson) {
    Json document = json_head("faults", subject, answer.desk());
    document["fault_count"] = subject.ledger().faults().count();
    document["faults"] = faults_json(subject);
    write_json(answer.output(), document);
  } else if (options.format == Format::kCsv) {
    write_csv(answer.output(), fault_rows(subject));
  } else {
    write_faults(answer.output(), subject);
  }
  return answer.finish(subject);
}

}  // namespace quarl::report
