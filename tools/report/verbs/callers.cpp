// SPDX-License-Identifier: Apache-2.0
// `callers`: who calls a function through which memory is asked for, and who calls those.
#include "report/analysis/call_tree.h"
#include "report/analysis/peak_watch.h"
#include "report/analysis/turnover.h"
#include "report/formats/folded.h"
#include "report/formats/json_document.h"
#include "report/formats/text_page.h"
#include "report/verbs/site_answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

SiteTable live_at_peak(Subject& subject) {
  require_records(subject, "the highest point");
  PeakWatch peak;
  subject.pass().watch(peak);
  const Ledger& ledger = subject.ledger();
  Chooser chooser = subject.chooser_at(peak.record().time);
  return subject.table(Grouping::kTrace, Order::kBytes, [&](SiteTable& table) {
    peak.for_each(ledger, [&](const LiveEntry& entry) {
      if (chooser.takes(entry, ledger.traces())) table.add(entry);
    });
  });
}

SiteTable allocated(Subject& subject) {
  require_records(subject, "what was ever allocated");
  Turnover turnover(Grouping::kTrace, subject.chooser(), subject.pass().filling());
  subject.pass().watch(turnover);
  return subject.table(Grouping::kTrace, Order::kBytes, [&](SiteTable& table) { turnover.fill(table); });
}

SiteTable sites_of(Subject& subject, View view) {
  if (view == View::kPeak) return live_at_peak(subject);
  if (view == View::kAllocated) return allocated(subject);
  return subject.sites();
}

void add_rows(Table& table, const CallNode& node, uint64_t depth) {
  for (const CallNode& child : node.children) {
    table.rows.push_back({depth, child.usage.bytes, child.usage.count, child.name});
    add_rows(table, child, depth + 1);
  }
}

// One line a function, callers behind those that they call, one deeper.
Table caller_rows(const CallNode& root) {
  Table table{{{"depth", "depth"}, {"bytes", "bytes"}, {"count", "blocks"}, {"function", "function"}}, {}};
  add_rows(table, root, 0);
  return table;
}

void write(Answer& answer, Subject& subject, const CallNode& root, const SiteTable& sites) {
  const Usage& all = sites.total();
  const Options& options = answer.options();
  switch (options.format) {
    case Format::kJson: {
      Json document = json_head("callers", subject, answer.desk());
      document["function"] = options.function;
      document["view"] = name_of(options.view);
      document["all"] = usage_json(all);
      add_left_out(document, sites.left_out());
      document["tree"] = tree_json(root);
      return write_json(answer.output(), document);
    }
    case Format::kCsv:
      return write_csv(answer.output(), caller_rows(root));
    case Format::kFolded:
      return write_folded(answer.output(), root);
    default:
      answer.output().print("{} of {} {}: through {}\n", answer.output().bold(in_blocks(root.usage)), in_blocks(all),
                            name_of(options.view), options.function);
      write_left_out(answer.output(), sites.left_out());
      return write_tree(answer.output(), root, "functions above, their callers below");
  }
}

}  // namespace

int report_callers(const Options& options) {
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  const SiteTable& sites = sites_of(subject, options.view);
  const CallNode root = build_caller_tree(sites.sites(), options.function);
  write(answer, subject, root, sites);
  answer.note_left_out(sites.left_out());
  answer.finish(subject.log().notes());
  if (root.usage.count != 0) return 0;
  fmt::print(stderr, "quarl report: no call trace has a function that matches {}\n", options.function);
  return 1;
}

}  // namespace quarl::report
