#include <CLI/CLI.hpp>

#include "report/formats/folded.h"
#include "report/formats/json_document.h"
#include "report/formats/pprof.h"
#include "report/formats/text_page.h"
#include "report/verbs/answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

void require_traces(const Options& options) {
  bool traces = options.tree || options.format == Format::kFolded || options.format == Format::kPprof;
  if (traces && options.grouping != Grouping::kTrace) {
    throw CLI::ValidationError("--by", "a tree, folded stacks and pprof files are made of traces: use --by trace");
  }
}

void write_leaks_json(Answer& answer, Subject& subject, const SiteTable& sites) {
  Json document = json_head("leaks", subject, answer.desk());
  add_sites(document, sites, answer.top());
  if (answer.options().tree) document["tree"] = tree_json(build_call_tree(sites.sites()));
  write_json(answer.output(), document);
}

void write_leaks_text(Answer& answer, const SiteTable& sites) {
  bool traces = answer.options().grouping == Grouping::kTrace;
  if (answer.options().tree) return write_tree(answer.output(), build_call_tree(sites.sites()));
  if (traces) return write_sites(answer.output(), sites, answer.top());
  write_text(answer.output(), without_column(site_rows(sites.sites(), answer.top()), "source"));
}

}  // namespace

int report_leaks(const Options& options) {
  require_traces(options);
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  const SiteTable& sites = subject.sites(options.grouping);
  switch (options.format) {
    case Format::kJson:
      write_leaks_json(answer, subject, sites);
      break;
    case Format::kCsv:
      write_csv(answer.output(), site_rows(sites.sites(), answer.top()));
      break;
    case Format::kFolded:
      write_folded(answer.output(), sites.sites());
      break;
    case Format::kPprof:
      answer.output().write(pprof_of(subject));
      break;
    default:
      write_leaks_text(answer, sites);
  }
  int status = answer.finish(subject);
  return status != 0 ? status : answer.judge(sites.total());
}

}  // namespace quarl::report
